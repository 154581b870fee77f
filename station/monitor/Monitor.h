#pragma once

#include <functional>
#include <optional>
#include <string>

#include "protocol/Errors.h"
#include "protocol/catalogue/Model.h"
#include "station/Connection.h"
#include "station/trace/Pcapng.h"

namespace station {

struct MonitorTerms {
    PortSpec port;
    /// How long the unit may take to answer when the monitor switches auto-test mode.
    Connection::Duration timeout = std::chrono::seconds(1);
    Connection::Duration reconnect = std::chrono::hours(1);
    /// Empty: until the user interrupts.
    std::optional<Connection::Duration> duration;
    bool enterTestMode = false;
};

/// Where the monitor's findings go. Everything here is called on the thread of `monitor`.
struct MonitorOutput {
    /// Gets every event without its secrets.
    TraceSink& shown;
    /// Gets the same before; may be nullptr.
    pcapng::File* capture = nullptr;
    std::function<void(const std::string&)> complain;
    /// @returns whether there is no reader any more.
    std::function<bool()> closed = [] { return false; };
};

/// Shows a line until the user interrupts, the time is over or no reader is left. Switches auto-test mode on if the
/// terms say so, again after the device came back, and at the end back to the mode before. Throws LineError.
/// @returns kPassed; kNoAnswer if the unit did not let auto-test mode be switched on; kFailed if the capture has
/// failed.
protocol::ExitStatus monitor(protocol::catalogue::Groups groups, const MonitorTerms& terms, const MonitorOutput& output,
                             Interrupt& interrupt);

}  // namespace station
