#include "station/record/Capture.h"

#include "station/record/Outcome.h"
#include "station/trace/Pcapng.h"

namespace station::record {

std::string capture(const Run& run, protocol::catalogue::Groups groups)
{
    std::string bytes = pcapng::header({"engineering-station " + run.station.version, run.unit.port, run.unit.baud});
    for (const EventLine& line : linesOf(run.events, {0, run.events.next()}, groups)) {
        if (line.event != nullptr) {
            bytes += pcapng::packet(*line.event, line.meaning);
        }
    }
    return bytes;
}

}  // namespace station::record
