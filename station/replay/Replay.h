#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "protocol/Errors.h"
#include "protocol/catalogue/Model.h"
#include "station/Connection.h"
#include "station/Conversation.h"
#include "station/trace/CaptureReader.h"

/// Sends the commands of a capture again and compares what the unit answers now with what it answered then.
namespace station {

struct ReplayTerms {
    PortSpec port;
    Connection::Duration timeout = std::chrono::seconds(1);  ///< for the answers to a command
    bool fast = false;                                       ///< without the capture's pauses
    bool yes = false;                                        ///< destructive commands may go out
    std::string ignore;                                      ///< an EventFilter: frames whose answers are not compared
};

/// What a capture holds for a replay.
struct Recording {
    std::size_t commands = 0;
    /// GROUP.COMMAND.FIELD of the values that changed between two reads although no command wrote in between: only
    /// their range is compared.
    std::set<std::string> varying;
    std::size_t corrupt = 0;     ///< frames with a wrong checksum
    std::size_t incomplete = 0;  ///< frames
    std::size_t garbage = 0;     ///< bytes

    /// @returns what is neither sent nor compared, as in "1 corrupt frame, 0 incomplete frames and 3 bytes outside
    /// frames"; empty for nothing.
    std::string noise() const;
};

/// Reads a capture before anything of it is sent. Throws UserError, with the command's number, if it has no command, a
/// command that may not be sent, or a pause of more than an hour before the first masked frame.
/// @param name of the capture, for messages.
Recording survey(protocol::catalogue::Groups groups, CaptureReader& capture, const std::string& name,
                 const ReplayTerms& terms);

/// A command that was sent again. Secrets are masked.
struct Replayed {
    enum class Result {
        kSame,
        kDiffers,
        kMissing,     ///< an answer that the capture has did not come
        kUnexpected,  ///< an answer came that the capture does not have
        kIgnored,
    };

    std::size_t number = 0;  ///< in the capture, from 1
    Request request;
    std::vector<protocol::Frame> expected;
    std::vector<protocol::Frame> got;
    Result result = Result::kSame;
    std::vector<std::string> differences;
};

/// @returns "same", "differs", "missing", "unexpected" or "ignored".
const char* name(Replayed::Result result);

struct ReplaySummary {
    std::size_t sent = 0;
    /// By Replayed::Result.
    std::array<std::size_t, 5> results{};
    /// Frames that answered nothing, now; they are not compared.
    std::size_t notices = 0;
    /// The command that has a masked value, where the replay has stopped.
    std::optional<std::size_t> maskedAt;

    std::size_t count(Replayed::Result result) const { return results.at(static_cast<std::size_t>(result)); }
    protocol::ExitStatus status() const;
};

/// Sends the commands of a capture, each after the answers to those before it or their time-out. Tells each command
/// once its answers are compared, in order. Throws LineError if the line is lost, and what the guard of the connection
/// throws; the commands before are told.
/// @param groups outlive the call.
/// @param summary counts from 0, also if the call throws.
void replay(protocol::catalogue::Groups groups, CaptureReader& capture, const Recording& recording,
            const ReplayTerms& terms, Interrupt& interrupt, const std::function<void(const Replayed&)>& tell,
            ReplaySummary& summary);

}  // namespace station
