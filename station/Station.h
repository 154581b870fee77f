#pragma once

#include <chrono>
#include <cstddef>
#include <optional>

#include "protocol/Frame.h"
#include "protocol/FrameAssembler.h"
#include "station/SerialLink.h"

namespace station {

/// @returns whether `received` is what the head unit answers `command` with, the asymmetries of the wire included.
/// A head unit also sends on its own: whatever does not answer the command is no reply to it.
bool isReply(const protocol::Frame& command, const protocol::Frame& received);

/// A test station on a line: sends commands and recognises their replies. For one thread.
/// Trouble of the line is thrown as SerialLink throws it.
class Station
{
public:
    using Clock = SerialLink::Clock;

    explicit Station(SerialLink link);

    /// Sends one frame. Throws std::length_error when it has more than protocol::kMaxStationParams parameters.
    void send(const protocol::Frame& frame, Clock::time_point deadline);

    /// Waits for the next sound frame; noise and frames with a wrong checksum are passed over and counted.
    /// @returns nothing when none came by `deadline`.
    std::optional<protocol::Frame> receive(Clock::time_point deadline);

    /// Discards what is left in the line from before, sends `command` and waits for the reply to it.
    /// @returns nothing when none came within `timeout`.
    std::optional<protocol::Frame> request(const protocol::Frame& command, std::chrono::nanoseconds timeout);

    /// @returns how many frames with a wrong checksum have been received since the last request began.
    std::size_t corruptFrames() const { return corruptFrames_; }

private:
    std::optional<protocol::Frame> nextFrame();

    SerialLink link_;
    protocol::FrameAssembler assembler_;
    std::size_t corruptFrames_ = 0;
};

}  // namespace station
