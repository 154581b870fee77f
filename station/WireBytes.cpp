#include "station/WireBytes.h"

namespace station {

namespace {

using protocol::Bytes;

std::vector<std::uint8_t> assemble(std::uint8_t length, std::uint8_t cmdOne, std::uint8_t cmdTwo, Bytes params,
                                   std::uint16_t checksum)
{
    std::vector<std::uint8_t> bytes{protocol::kHeader1, protocol::kHeader2, 0x00, length, cmdOne, cmdTwo};
    bytes.insert(bytes.end(), params.begin(), params.end());
    if (bytes.size() % 2 != 0) {
        bytes.push_back(0x00);
    }
    bytes.push_back(static_cast<std::uint8_t>(checksum >> 8));
    bytes.push_back(static_cast<std::uint8_t>(checksum & 0xFF));
    return bytes;
}

}  // namespace

std::vector<std::uint8_t> wireBytes(const protocol::Frame& frame)
{
    const auto length = static_cast<std::uint8_t>(frame.params.size() + 2);
    return assemble(length, frame.cmdOne, frame.cmdTwo, frame.params,
                    protocol::checksum(length, frame.cmdOne, frame.cmdTwo, frame.params));
}

std::vector<std::uint8_t> wireBytes(protocol::ReceivedFrame& frame)
{
    // The padding too: it is not 0 in every frame that is wrong.
    const std::size_t count = frame.params().size();
    return assemble(frame.length, frame.cmdOne, frame.cmdTwo, Bytes(frame.area, count + count % 2),
                    frame.receivedChecksum);
}

std::vector<std::uint8_t> wireBytes(const TraceEvent& event)
{
    if (!hasFrame(event.kind)) {
        return {};
    }
    return event.bytes.empty() ? wireBytes(event.frame) : event.bytes;
}

}  // namespace station
