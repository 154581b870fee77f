#pragma once

#include <filesystem>
#include <functional>
#include <memory>
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
    /// @returns whether the reader of the output has gone. The monitor then ends and ignores a failed capture.
    std::function<bool()> closed = [] { return false; };
};

/// The line of a run that may still go on, as the run's record has it. The run notices nothing of it.
class RunTap
{
public:
    /// Waits for the record's first line. Throws RecordError, UserError, Interrupted.
    /// @param record as record::findRecord returns it
    /// @param interrupt outlives the object
    RunTap(std::filesystem::path record, Interrupt& interrupt);
    ~RunTap();
    RunTap(const RunTap&) = delete;
    RunTap& operator=(const RunTap&) = delete;

    /// @returns the port of the run.
    PortSpec port() const;

    /// Shows what happened on the line from the start of the run, and what happens, until the run or the time is over,
    /// the user interrupts or no reader is left. Throws RecordError.
    /// @returns kPassed; kFailed if the run was killed or its folder has gone; kNotRecorded if the capture has failed.
    protocol::ExitStatus show(protocol::catalogue::Groups groups, std::optional<Connection::Duration> duration,
                              const MonitorOutput& output);

private:
    struct State;
    std::unique_ptr<State> state_;
};

/// Shows a line until the user interrupts, the time is over or no reader is left. Switches auto-test mode on if the
/// terms say so, again after the device came back, and at the end back to the mode before. Throws LineError.
/// @returns kPassed; kNoAnswer if the unit did not let auto-test mode be switched on; kFailed if the capture has
/// failed.
protocol::ExitStatus monitor(protocol::catalogue::Groups groups, const MonitorTerms& terms, const MonitorOutput& output,
                             Interrupt& interrupt);

}  // namespace station
