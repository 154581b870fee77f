#include "station/trace/Secrets.h"

#include <algorithm>

#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "station/trace/Describe.h"

namespace station {

namespace catalogue = protocol::catalogue;

TraceEvent SecretMask::operator()(TraceEvent event)
{
    if (!hasFrame(event.kind)) {
        return event;
    }
    if (event.kind == TraceEvent::Kind::kSent) {
        const auto* command = catalogue::findCommand(groups_, event.frame.cmdOne, event.frame.cmdTwo);
        afterSecret_ = command != nullptr && catalogue::hasSecret(*command);
    }
    event.masked = catalogue::maskSecrets(groups_, event.frame) || event.masked;
    if (event.kind == TraceEvent::Kind::kCorrupt && (afterSecret_ || event.masked)) {
        event.masked = true;
        std::ranges::fill(event.frame.params, catalogue::kMask);
        // Behind header, length and code; the checksum is a sum of the bytes before it.
        constexpr std::size_t kPlain = 6;
        std::fill(event.bytes.begin() + static_cast<std::ptrdiff_t>(std::min(kPlain, event.bytes.size())),
                  event.bytes.end(), catalogue::kMask);
    }
    return event;
}

std::string formatMasked(catalogue::Groups groups, const protocol::Frame& frame)
{
    return frameText(SecretMask(groups)({TraceEvent::Kind::kReceived, {}, {}, frame, {}}));
}

}  // namespace station
