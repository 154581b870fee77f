// Reads any bytes as a capture: in the form that they seem to have, and in every other. Whatever they are, the reader
// ends, with pieces or with an error.
//
// Input: the capture.

#include <sstream>

#include "fuzz/Fuzz.h"
#include "protocol/Errors.h"
#include "station/trace/CaptureReader.h"

namespace {

void read(const std::string& capture, const std::string& format)
{
    std::istringstream in(capture);
    std::size_t bytes = 0;
    std::size_t events = 0;
    try {
        station::CaptureReader reader(in, "capture", {.format = format});
        while (const auto piece = reader.next()) {
            bytes += piece->noise.bytes.size();
            events += piece->event ? 1 : 0;
        }
    } catch (const protocol::UserError& error) {
        fuzz::expect(std::string_view(error.what()).starts_with("capture:"), "no place: " + std::string(error.what()));
    }
    // A line of hexdump -C may stand for a MiB; the shortest text of a frame is "00 00[]".
    const std::size_t most =
        capture.size() + (format == "hexdump" || format == "xxd" || format == "auto" ? 1U << 22 : 0);
    fuzz::expect(bytes <= most && events <= most, "more than the capture holds");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string capture(reinterpret_cast<const char*>(data), size);
    read(capture, "auto");
    for (const auto& format : station::kCaptureFormats) {
        read(capture, format.name);
    }
    return 0;
}
