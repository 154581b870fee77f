#include "station/monitor/EventDecoder.h"

#include <algorithm>

#include "protocol/catalogue/Catalogue.h"
#include "station/Hex.h"

namespace station {

namespace catalogue = protocol::catalogue;
using Kind = TraceEvent::Kind;

catalogue::Decoded EventDecoder::decode(const TraceEvent& event)
{
    switch (event.kind) {
        case Kind::kSent:
            asked_ = catalogue::findCommand(groups_, event.frame.cmdOne, event.frame.cmdTwo);
            return catalogue::decodeRequest(groups_, event.frame);
        case Kind::kReceived: {
            const bool answered = asked_ != nullptr && catalogue::answers(*asked_, event.frame);
            return catalogue::decodeFromUnit(groups_, event.frame, answered ? asked_ : nullptr);
        }
        default:
            return {};
    }
}

const char* name(Kind kind)
{
    switch (kind) {
        case Kind::kSent:
            return "sent";
        case Kind::kReceived:
            return "received";
        case Kind::kCorrupt:
            return "corrupt";
        case Kind::kLost:
            return "lost";
        case Kind::kBack:
            return "back";
    }
    return "";
}

std::string describe(catalogue::Groups groups, const TraceEvent& event, const catalogue::Decoded& decoded)
{
    std::string text;
    switch (event.kind) {
        case Kind::kSent:
        case Kind::kReceived:
            text = catalogue::format(groups, decoded, event.frame);
            break;
        case Kind::kCorrupt:
            text = format(event.frame) + ": wrong checksum";
            break;
        case Kind::kLost:
            text = event.text;
            break;
        case Kind::kBack:
            text = "the device is there again";
            break;
    }
    std::ranges::replace_if(
        text, [](unsigned char c) { return c < 0x20 || c == 0x7F; }, ' ');
    return text;
}

}  // namespace station
