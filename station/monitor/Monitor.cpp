#include "station/monitor/Monitor.h"

#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <system_error>
#include <utility>

#include "station/identity/UnitIdentity.h"
#include "station/record/RecordJson.h"
#include "station/record/ResultsFolder.h"
#include "station/record/RunList.h"
#include "station/trace/Secrets.h"

namespace station {

namespace {

/// How long the end waits for a device that has gone, to switch the unit's mode back.
constexpr auto kRestoreWait = std::chrono::seconds(1);

/// How often the monitor looks at the capture and the reader.
constexpr auto kLook = std::chrono::milliseconds(200);

/// How often a tap looks at the record: a file system need not tell that a file has grown, and a tap that woke at every
/// line would take the run's time.
constexpr auto kTapLook = std::chrono::milliseconds(20);

/// Shows the events of the line as they happen.
class Watch : public TraceSink
{
public:
    Watch(protocol::catalogue::Groups groups, const MonitorOutput& output) : output_(output), mask_(groups) {}

    void on(const TraceEvent& clear) override
    {
        const TraceEvent event = mask_(clear);
        back_ = back_ || event.kind == TraceEvent::Kind::kBack;
        // First: an event that was shown is in the capture, whatever happens then.
        if (output_.capture != nullptr) {
            output_.capture->on(event);
        }
        output_.shown.on(event);
    }

    /// @returns whether the device has come back since the last call.
    bool takeBack() { return std::exchange(back_, false); }

    /// Complains about a capture that has failed, once.
    /// @returns whether it has.
    bool captureFailed()
    {
        const bool failed = output_.capture != nullptr && !output_.capture->failure().empty() && !output_.closed();
        if (failed && !std::exchange(complained_, true)) {
            output_.complain(output_.capture->failure());
        }
        return failed;
    }

private:
    const MonitorOutput& output_;
    SecretMask mask_;
    bool back_ = false;
    bool complained_ = false;
};

Connection::Clock::time_point endAfter(std::optional<Connection::Duration> duration)
{
    return duration ? Connection::Clock::now() + *duration : Connection::Clock::time_point::max();
}

void watch(Watch& trace, const MonitorTerms& terms, const MonitorOutput& output, Connection& connection,
           identity::UnitIdentity& unit)
{
    const auto end = endAfter(terms.duration);
    while (Connection::Clock::now() < end && !output.closed()) {
        connection.receive(std::min(end, Connection::Clock::now() + kLook));
        if (trace.takeBack() && terms.enterTestMode) {
            // A unit that started again has left the mode. One that is not up yet is asked when it comes back again.
            try {
                unit.keepTestMode();
            } catch (const identity::NoAnswer& error) {
                output.complain(error.what());
            }
        }
        trace.captureFailed();
    }
}

}  // namespace

protocol::ExitStatus monitor(protocol::catalogue::Groups groups, const MonitorTerms& terms, const MonitorOutput& output,
                             Interrupt& interrupt)
{
    Watch trace(groups, output);
    Connection connection(terms.port, {.reconnect = terms.reconnect, .trace = &trace, .interrupt = &interrupt});
    identity::UnitIdentity unit(connection, groups, terms.timeout);
    protocol::ExitStatus status = protocol::kPassed;
    try {
        if (terms.enterTestMode) {
            unit.enterTestMode();
        }
        watch(trace, terms, output, connection, unit);
    } catch (const Interrupted&) {
        // The usual end.
    } catch (const identity::NoAnswer& error) {
        output.complain(error.what());
        status = protocol::kNoAnswer;
    }
    if (terms.enterTestMode) {
        interrupt.clear();
        // The watch may wait for ever, its end may not.
        connection.waitAtMost(kRestoreWait);
        try {
            unit.restoreMode();
        } catch (const std::exception& error) {
            output.complain(fmt::format("auto-test mode is left on: {}", error.what()));
        }
    }
    return trace.captureFailed() ? protocol::kNotRecorded : status;
}

struct RunTap::State {
    State(std::filesystem::path path, Interrupt& interruptOfUser)
        : record(std::move(path)), tail(record), interrupt(interruptOfUser)
    {
    }

    /// Waits until the record may have more.
    /// @returns whether it may.
    bool wait(Connection::Clock::time_point end)
    {
        if (tail.ended() || stopped) {
            return false;
        }
        stopped = !record::isRunning(record.parent_path());
        if (stopped) {
            // The run may have written its end since the last look.
            return true;
        }
        const auto rest = std::chrono::ceil<std::chrono::milliseconds>(
            std::min<Connection::Duration>(kTapLook, end - Connection::Clock::now()));
        pollfd asked{interrupt.descriptor(), POLLIN, 0};
        ::poll(&asked, 1, static_cast<int>(std::max<std::int64_t>(rest.count(), 0)));
        if (interrupt.requested()) {
            throw Interrupted();
        }
        return true;
    }

    /// @returns why the record has no more, though it has no end.
    std::string reason() const
    {
        std::error_code error;
        return fmt::format("{}: {}{}{}", record.parent_path().string(),
                           std::filesystem::exists(record, error)
                               ? "the run did not end: the station was stopped or lost its power"
                               : "the folder of the run has gone",
                           tail.cut().empty() ? "" : "; ", tail.cut());
    }

    const std::filesystem::path record;
    record::RecordTail tail;
    Interrupt& interrupt;
    bool stopped = false;
    std::optional<TraceEvent> first;
};

RunTap::RunTap(std::filesystem::path record, Interrupt& interrupt)
{
    if (!record::isOfLines(record)) {
        throw protocol::UserError(fmt::format(
            "{}: expected the record of a run that can be followed, {}, got an older one; see 'report show'",
            record.string(), record::kRecordFile));
    }
    // The name of the folder tells whether the run goes on.
    std::error_code error;
    const auto real = std::filesystem::canonical(record, error);
    state_ = std::make_unique<State>(error ? record : real, interrupt);
    State& state = *state_;
    while (!(state.first = state.tail.next()) && state.tail.unit().port.empty()) {
        if (!state.wait(Connection::Clock::time_point::max())) {
            throw protocol::UserError(state.reason());
        }
    }
}

RunTap::~RunTap() = default;

PortSpec RunTap::port() const
{
    const record::Run::Unit& unit = state_->tail.unit();
    return {unit.port, unit.baud};
}

protocol::ExitStatus RunTap::show(protocol::catalogue::Groups groups, std::optional<Connection::Duration> duration,
                                  const MonitorOutput& output)
{
    State& state = *state_;
    Watch trace(groups, output);
    protocol::ExitStatus status = protocol::kPassed;
    const auto end = endAfter(duration);
    try {
        auto event = std::exchange(state.first, std::nullopt);
        while (Connection::Clock::now() < end && !output.closed()) {
            if (event || (event = state.tail.next())) {
                trace.on(*std::exchange(event, std::nullopt));
                if (state.interrupt.requested()) {
                    break;
                }
            } else if (!state.wait(end)) {
                if (!state.tail.ended()) {
                    output.complain(state.reason());
                    status = protocol::kFailed;
                }
                break;
            }
            trace.captureFailed();
        }
    } catch (const Interrupted&) {
        // The usual end.
    }
    return trace.captureFailed() ? protocol::kNotRecorded : status;
}

}  // namespace station
