#include "station/record/Capture.h"

#include "station/record/FrameText.h"
#include "station/trace/Pcapng.h"

namespace station::record {

std::string capture(const Run& run, protocol::catalogue::Groups groups)
{
    std::string bytes = pcapng::header({"engineering-station " + run.station.version, run.unit.port, run.unit.baud});
    const auto meanings = meaningOf(run.trace, groups);
    for (std::size_t i = 0; i < meanings.size(); ++i) {
        const TraceEvent& event = run.trace[i];
        bytes += pcapng::packet(event, hasFrame(event.kind) ? meanings[i] : "");
    }
    return bytes;
}

}  // namespace station::record
