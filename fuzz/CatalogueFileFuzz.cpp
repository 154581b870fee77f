// Reads any text as a catalogue.

#include <algorithm>
#include <string_view>

#include "fuzz/Fuzz.h"
#include "protocol/catalogue/Document.h"
#include "protocol/catalogue/generator/Writers.h"

using namespace protocol::catalogue;
using fuzz::expect;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const Document document({reinterpret_cast<const char*>(data), size});
    for (const auto& problem : document.problems()) {
        const std::string line = format("FILE", problem);
        expect(problem.line >= 1 && problem.column >= 1, "a problem without a place: " + line);
        expect(!problem.text.empty() && line.find('\n') == std::string::npos, "expected one line, got: " + line);
    }
    if (document.problems().empty()) {
        // A valid catalogue can be written as code.
        generator::writeCpp(document.groups(), "");
    }
    return 0;
}
