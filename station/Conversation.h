#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "protocol/Errors.h"
#include "protocol/Frame.h"
#include "protocol/catalogue/Model.h"
#include "station/Connection.h"

/// One command and what answers it: from the user's words to the exit status.
namespace station {

/// A command as the user wrote it.
struct Request {
    protocol::Frame frame;
    /// nullptr if the catalogue does not know the command.
    const protocol::catalogue::Command* command = nullptr;
    /// Whether the user wrote GROUP.COMMAND NAME=VALUE…, not bytes.
    bool named = false;
    /// "tuner.play", or "02 00" if the catalogue does not know the command.
    std::string title;
};

/// Reads GROUP.COMMAND NAME=VALUE…, or CMD_ONE CMD_TWO BYTE… in hexadecimal. Throws UserError.
/// @param command the first word.
/// @param groups outlive the request.
Request parseRequest(protocol::catalogue::Groups groups, const std::string& command,
                     const std::vector<std::string>& arguments);

/// @returns the request for a frame. Throws UserError for more parameters than a station may send.
/// @param groups outlive the request.
Request requestOf(protocol::catalogue::Groups groups, protocol::Frame frame);

/// What the user wants to wait for.
struct SendTerms {
    Connection::Duration timeout = std::chrono::seconds(1);
    bool expectNone = false;
    bool waitLater = false;
    bool yes = false;  ///< a destructive command may go out
};

/// Throws UserError if the terms do not fit the request.
void check(const Request& request, const SendTerms& terms);

/// What the unit says about auto-test mode when it was silent.
enum class ModeReport { kNotAsked, kSilent, kOff, kOn };

/// The frames that answer a command.
struct Answer {
    std::optional<protocol::Frame> reply;
    std::optional<protocol::Frame> later;
    Connection::Duration roundTrip{0};
    std::size_t corrupt = 0;
    ModeReport mode = ModeReport::kNotAsked;

    std::vector<protocol::Frame> frames() const;
};

/// Sends the command and waits as the terms say. A command by name that has no reply in the catalogue returns at once;
/// one in bytes always waits. A later reply may come before the reply. If the unit is silent, asks it for its mode.
Answer converse(Connection& connection, protocol::catalogue::Groups groups, const Request& request,
                const SendTerms& terms);

struct Judgement {
    protocol::ExitStatus status = protocol::kPassed;
    /// One line about what is missing or too much, or why there is no reply to print; usually empty for kPassed.
    std::string complaint;
};

Judgement judge(const Request& request, const SendTerms& terms, const Answer& answer);

}  // namespace station
