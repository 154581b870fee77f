#pragma once

#include <cstdint>
#include <vector>

#include "protocol/Frame.h"
#include "protocol/FrameAssembler.h"
#include "station/trace/Trace.h"

namespace station {

/// @returns the frame as it stands on the line, header to checksum; also one that is too long to be sent, whose length
/// byte then is cut to 8 bits.
std::vector<std::uint8_t> wireBytes(const protocol::Frame& frame);

/// @returns the frame as it stood on the line, its checksum good or bad; the reserved byte, which nobody looks at, as
/// 00.
std::vector<std::uint8_t> wireBytes(protocol::ReceivedFrame& frame);

/// @returns the bytes of an event's frame as they stood on the line; none for an event without a frame.
std::vector<std::uint8_t> wireBytes(const TraceEvent& event);

}  // namespace station
