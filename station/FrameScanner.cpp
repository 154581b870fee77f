#include "station/FrameScanner.h"

#include <algorithm>

namespace station {

namespace {

using protocol::Bytes;

/// @returns the place of a frame's header, or the end of `bytes`.
std::size_t findHeader(Bytes bytes)
{
    constexpr std::uint8_t kHeader[] = {protocol::kHeader1, protocol::kHeader2};
    const auto found = std::search(bytes.begin(), bytes.end(), std::begin(kHeader), std::end(kHeader));
    return static_cast<std::size_t>(found - bytes.begin());
}

/// Puts pieces together, those of one kind of noise that follow each other as one.
class Pieces
{
public:
    void add(ScannedPiece::Kind kind, Bytes bytes, protocol::Frame frame = {})
    {
        if (bytes.empty()) {
            return;
        }
        if (kind == ScannedPiece::Kind::kGarbage && !pieces_.empty() && pieces_.back().kind == kind) {
            pieces_.back().bytes.insert(pieces_.back().bytes.end(), bytes.begin(), bytes.end());
            return;
        }
        pieces_.push_back({kind, std::move(frame), {bytes.begin(), bytes.end()}});
    }

    /// Adds bytes without a frame; they may end with the beginning of one.
    void addRest(Bytes bytes)
    {
        std::size_t header = findHeader(bytes);
        if (header == bytes.size() && !bytes.empty() && bytes.back() == protocol::kHeader1) {
            --header;
        }
        add(ScannedPiece::Kind::kGarbage, bytes.first(header));
        add(ScannedPiece::Kind::kIncomplete, bytes.subspan(header));
    }

    std::vector<ScannedPiece> take() { return std::move(pieces_); }

private:
    std::vector<ScannedPiece> pieces_;
};

/// How many of the `consumed` bytes, which end with a frame, stand before it.
std::size_t garbageBefore(Bytes consumed, std::uint8_t length)
{
    if (length == 0xFF) {
        // Cut off where the stream ended: its own beginning tells.
        for (std::size_t i = 0; i + protocol::kLengthOffset < consumed.size(); ++i) {
            if (findHeader(consumed.subspan(i, 2)) == 0 && consumed[i + protocol::kLengthOffset] == length) {
                return i;
            }
        }
    }
    const std::size_t size = protocol::frameLength(static_cast<std::size_t>(length) - 2);
    return consumed.size() - std::min(consumed.size(), size);
}

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

std::vector<ScannedPiece> scanFrames(Bytes stream)
{
    protocol::FrameAssembler assembler;
    Pieces pieces;
    std::size_t done = 0;
    for (std::size_t fed = 0; fed < stream.size();) {
        // The assembler drops nothing of a chunk that is no longer than its limit.
        const Bytes chunk = stream.subspan(fed, std::min(stream.size() - fed, protocol::FrameAssembler::kLimit));
        fed += chunk.size();
        const std::size_t dropped = assembler.append(chunk);
        pieces.add(ScannedPiece::Kind::kGarbage, stream.subspan(done, dropped));
        done += dropped;
        while (auto received = assembler.worthParsing() || done > 0 ? assembler.next() : std::nullopt) {
            const Bytes consumed = stream.subspan(done, fed - assembler.size() - done);
            const std::size_t garbage = garbageBefore(consumed, received->length);
            const auto params = received->params();
            pieces.add(ScannedPiece::Kind::kGarbage, consumed.first(garbage));
            pieces.add(received->checksumHolds ? ScannedPiece::Kind::kFrame : ScannedPiece::Kind::kCorrupt,
                       consumed.subspan(garbage), {received->cmdOne, received->cmdTwo, {params.begin(), params.end()}});
            done += consumed.size();
        }
    }
    pieces.addRest(stream.subspan(done));
    return pieces.take();
}

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
