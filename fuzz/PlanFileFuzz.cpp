// Reads any text as a plan.

#include <string_view>

#include "fuzz/Fuzz.h"
#include "protocol/catalogue/Catalogue.h"
#include "station/plan/Load.h"

using fuzz::expect;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto loaded =
        station::plan::load({reinterpret_cast<const char*>(data), size}, "FILE", protocol::catalogue::groups());
    expect(loaded.plan.has_value() == loaded.problems.empty(), "a plan that is neither sound nor wrong");
    for (const auto& problem : loaded.problems) {
        const std::string line = format("FILE", problem);
        expect(problem.line >= 1 && problem.column >= 1, "a problem without a place: " + line);
        expect(!problem.text.empty() && line.find('\n') == std::string::npos, "expected one line, got: " + line);
    }
    if (loaded.plan) {
        station::plan::estimate(*loaded.plan, 115200);
    }
    return 0;
}
