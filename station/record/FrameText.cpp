#include "station/record/FrameText.h"

#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/HexBytes.h"
#include "station/Hex.h"
#include "station/record/Text.h"

namespace station::record {

std::vector<std::string> meaningOf(const std::vector<TraceEvent>& events, protocol::catalogue::Groups groups)
{
    using namespace protocol::catalogue;
    std::vector<std::string> meanings;
    meanings.reserve(events.size());
    const Command* asked = nullptr;
    for (const TraceEvent& event : events) {
        switch (event.kind) {
            case TraceEvent::Kind::kSent:
                asked = findCommand(groups, event.frame.cmdOne, event.frame.cmdTwo);
                meanings.push_back(printable(format(groups, decodeRequest(groups, event.frame), event.frame)));
                break;
            case TraceEvent::Kind::kReceived:
                meanings.push_back(printable(format(groups, decodeFromUnit(groups, event.frame, asked), event.frame)));
                break;
            case TraceEvent::Kind::kCorrupt:
                meanings.emplace_back("the checksum is wrong: the frame was damaged on the line");
                break;
            case TraceEvent::Kind::kLost:
                meanings.push_back("the port went away" + (event.text.empty() ? "" : ": " + printable(event.text)));
                break;
            case TraceEvent::Kind::kBack:
                meanings.emplace_back("the port is there again");
                break;
        }
    }
    return meanings;
}

std::string bytesOf(const TraceEvent& event)
{
    if (!event.bytes.empty()) {
        return protocol::catalogue::formatHexBytes(event.bytes);
    }
    return hasFrame(event.kind) ? station::format(event.frame) : std::string();
}

}  // namespace station::record
