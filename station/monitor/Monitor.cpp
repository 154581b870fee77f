#include "station/monitor/Monitor.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "station/identity/UnitIdentity.h"
#include "station/trace/Secrets.h"

namespace station {

namespace {

/// How long the end waits for a device that has gone, to switch the unit's mode back.
constexpr auto kRestoreWait = std::chrono::seconds(1);

/// How often the monitor looks at the capture and the reader.
constexpr auto kLook = std::chrono::seconds(1);

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
        const bool failed = output_.capture != nullptr && !output_.capture->failure().empty();
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

void watch(Watch& trace, const MonitorTerms& terms, const MonitorOutput& output, Connection& connection,
           identity::UnitIdentity& unit)
{
    const auto end = terms.duration ? Connection::Clock::now() + *terms.duration : Connection::Clock::time_point::max();
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

}  // namespace station
