#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>

#include "protocol/catalogue/Codec.h"
#include "station/trace/Trace.h"

namespace station {

/// Finds the meaning of each frame on a line, and the command that it answers. Two commands may share the code of their
/// reply, and a reply may come late, twice, or where silence was expected. Remembers the last kRemembered commands.
/// Needs every event of the line, in order.
class Attribution
{
public:
    static constexpr std::size_t kRemembered = 16;

    /// The answer that the station expects to a command.
    enum class Due : std::uint8_t {
        kReply,
        kEither,   ///< a reply, or nothing
        kSilence,  ///< nothing
    };

    /// A command that was sent.
    struct Request {
        std::size_t number = 0;  ///< counts the commands from 1
        protocol::Frame frame;
        const protocol::catalogue::Command* command = nullptr;  ///< nullptr: the catalogue does not know it
        std::chrono::steady_clock::time_point at;
        Due due = Due::kEither;
        bool answered = false;
    };

    struct Meaning {
        protocol::catalogue::Decoded decoded;
        /// The command that the frame answers, as it was before the frame came.
        std::optional<Request> request;
    };

    /// @param groups outlive the object and all that it returns.
    explicit Attribution(protocol::catalogue::Groups groups) : groups_(groups) {}

    /// Sets the answer to expect to the commands from here on.
    void expect(Due due) { due_ = due; }

    /// The wait for the last command is over. From here on only a frame that answers a command, and never comes by
    /// itself under the same code, breaks an expected silence.
    void settle() { waiting_ = false; }

    /// @returns what the event's frame means; for an event without a good frame, nothing known.
    Meaning on(const TraceEvent& event);

    /// @returns how many commands have been sent.
    std::size_t requests() const { return count_; }

    protocol::catalogue::Groups groups() const { return groups_; }

private:
    bool answers(const Request& request, const TraceEvent& event) const;
    Request* find(const TraceEvent& event);

    protocol::catalogue::Groups groups_;
    std::deque<Request> requests_;  // the latest last
    std::size_t count_ = 0;
    Due due_ = Due::kEither;
    bool waiting_ = false;
};

/// @returns whether the frame is a later reply to the command.
bool isLater(const protocol::catalogue::Command& command, const protocol::Frame& frame);

}  // namespace station
