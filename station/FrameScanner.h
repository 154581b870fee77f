#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "protocol/Frame.h"
#include "protocol/FrameAssembler.h"
#include "station/trace/Trace.h"

namespace station {

/// A piece of a recorded stream.
struct ScannedPiece {
    enum class Kind : std::uint8_t {
        kFrame,       ///< a sound frame
        kCorrupt,     ///< a frame whose checksum is wrong
        kGarbage,     ///< bytes that belong to no frame
        kIncomplete,  ///< the beginning of a frame whose end is missing
    };

    Kind kind = Kind::kGarbage;
    /// Only for frames, sound or not.
    protocol::Frame frame;
    /// As they stood in the stream: all pieces together are the stream again.
    std::vector<std::uint8_t> bytes;
};

/// Cuts a stream into frames and the bytes between them, as a receiver would. Holds back what may still belong to a
/// frame, at most some MiB.
class FrameScanner
{
public:
    void add(protocol::Bytes bytes);

    /// Ends the stream: the bytes that are left are garbage or an incomplete frame. Another stream may follow.
    void end();

    /// @returns the pieces since the last call. Garbage at the end waits for more of it, up to `end` or 1 MiB.
    std::vector<ScannedPiece> take();

private:
    void addPiece(ScannedPiece::Kind kind, protocol::Bytes bytes, protocol::Frame frame = {});

    protocol::FrameAssembler assembler_;
    std::vector<ScannedPiece> pieces_;
    bool ended_ = false;
};

/// Cuts a whole stream.
std::vector<ScannedPiece> scanFrames(protocol::Bytes stream);

/// @returns the frame as it stands on the line, header to checksum. The length byte of a frame that is too long to be
/// sent is cut to 8 bits.
std::vector<std::uint8_t> wireBytes(const protocol::Frame& frame);

/// @returns the frame as it stood on the line, with its good or bad checksum. The reserved byte is 00.
std::vector<std::uint8_t> wireBytes(protocol::ReceivedFrame& frame);

/// @returns the bytes of an event's frame as they stood on the line; none for an event without a frame.
std::vector<std::uint8_t> wireBytes(const TraceEvent& event);

}  // namespace station
