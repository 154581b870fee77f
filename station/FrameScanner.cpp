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

/// Garbage is handed out from this size on, even if more of it follows.
constexpr std::size_t kLongGarbage = std::size_t{1} << 20;

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

void FrameScanner::addPiece(ScannedPiece::Kind kind, Bytes bytes, protocol::Frame frame)
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

void FrameScanner::add(Bytes bytes)
{
    using protocol::FrameAssembler;
    while (!bytes.empty()) {
        const Bytes chunk = bytes.first(std::min(bytes.size(), FrameAssembler::kLimit));
        bytes = bytes.subspan(chunk.size());
        std::vector<std::uint8_t> all;
        if (const Bytes held = assembler_.bytes(); held.size() + chunk.size() > FrameAssembler::kLimit) {
            all.assign(held.begin(), held.end());
            all.insert(all.end(), chunk.begin(), chunk.end());
        }
        const std::size_t dropped = assembler_.append(chunk);
        addPiece(ScannedPiece::Kind::kGarbage, Bytes(all).first(dropped));
        if (!assembler_.worthParsing()) {
            continue;
        }
        for (Bytes left = assembler_.bytes(); auto received = assembler_.next(); left = assembler_.bytes()) {
            const Bytes consumed = left.first(left.size() - assembler_.size());
            const std::size_t garbage = garbageBefore(consumed, received->length);
            const auto params = received->params();
            addPiece(ScannedPiece::Kind::kGarbage, consumed.first(garbage));
            addPiece(received->checksumHolds ? ScannedPiece::Kind::kFrame : ScannedPiece::Kind::kCorrupt,
                     consumed.subspan(garbage), {received->cmdOne, received->cmdTwo, {params.begin(), params.end()}});
        }
    }
}

void FrameScanner::end()
{
    const Bytes rest = assembler_.bytes();
    std::size_t header = findHeader(rest);
    // The rest may end with the first byte of a header.
    if (header == rest.size() && !rest.empty() && rest.back() == protocol::kHeader1) {
        --header;
    }
    addPiece(ScannedPiece::Kind::kGarbage, rest.first(header));
    addPiece(ScannedPiece::Kind::kIncomplete, rest.subspan(header));
    assembler_ = {};
    ended_ = true;
}

std::vector<ScannedPiece> FrameScanner::take()
{
    std::vector<ScannedPiece> taken = std::move(pieces_);
    pieces_.clear();
    const bool more = !ended_ && !taken.empty() && taken.back().kind == ScannedPiece::Kind::kGarbage &&
                      taken.back().bytes.size() < kLongGarbage;
    if (more) {
        pieces_.push_back(std::move(taken.back()));
        taken.pop_back();
    }
    ended_ = false;
    return taken;
}

std::vector<ScannedPiece> scanFrames(Bytes stream)
{
    FrameScanner scanner;
    scanner.add(stream);
    scanner.end();
    return scanner.take();
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
