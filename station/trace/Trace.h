#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "protocol/Frame.h"

namespace station {

/// Something that happened on a line.
struct TraceEvent {
    enum class Kind : std::uint8_t {
        kSent,      ///< `frame`, written whole
        kReceived,  ///< `frame`, with a good checksum
        kCorrupt,   ///< a frame whose checksum is wrong
        kLost,      ///< the device went away; `text` says how
        kBack,      ///< the device is there again
    };

    Kind kind = Kind::kSent;
    /// When it was written or had been received whole.
    std::chrono::system_clock::time_point at;
    std::chrono::steady_clock::time_point steady;
    protocol::Frame frame;
    std::string text;
    /// kCorrupt: the frame with its checksum as it stood on the line; otherwise empty.
    std::vector<std::uint8_t> bytes = {};
    /// kReceived: its first byte came before the last frame was sent, so it cannot answer that one.
    bool early = false;
    /// Whether bytes of `frame` and `bytes` are masked, since they were secret.
    bool masked = false;
    /// It belongs to a question of the connection's guard, not of the connection's user.
    bool aside = false;

    bool operator==(const TraceEvent&) const = default;
};

/// The quality of a line.
struct LineQuality {
    std::size_t losses = 0;         ///< how often the device went away
    std::size_t reconnects = 0;     ///< how often it came back
    std::size_t repeatedSends = 0;  ///< commands that were sent again after that
    std::size_t corruptFrames = 0;  ///< frames with a wrong checksum
    std::size_t garbageBytes = 0;   ///< bytes that belong to no frame

    bool operator==(const LineQuality&) const = default;
};

/// @returns whether such an event has a frame.
constexpr bool hasFrame(TraceEvent::Kind kind)
{
    return kind != TraceEvent::Kind::kLost && kind != TraceEvent::Kind::kBack;
}

/// Gets the events of a line, in their order, on the thread that uses the line.
/// `on` does not throw: a sink that cannot keep an event says so elsewhere, and the line goes on.
class TraceSink
{
public:
    virtual ~TraceSink() = default;
    virtual void on(const TraceEvent& event) = 0;
};

}  // namespace station
