#pragma once

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "platform/bench/CallRecord.h"
#include "platform/bench/EventQueue.h"
#include "platform/bench/Events.h"
#include "platform/bench/Services.h"
#include "platform/bench/State.h"

namespace bench {

/// The simulated head unit behind the platform's getters. Any thread, unless a comment says otherwise.
class HeadUnit
{
public:
    /// Has the built-in state and uses the timer thread of the process.
    HeadUnit();

    /// @param timers for delays; not owned
    explicit HeadUnit(runtime::TimerService& timers);

    /// Uninstalls and stops the unit. The results of the getters become invalid.
    ~HeadUnit();
    HeadUnit(const HeadUnit&) = delete;
    HeadUnit& operator=(const HeadUnit&) = delete;

    /// Merges `patch` over the state (RFC 7396).
    /// @throws StateError; nothing has changed then.
    void mergeState(const nlohmann::json& patch);

    /// From now on the platform's getters return the services of this unit.
    void install();

    /// @returns the installed unit, or null.
    static HeadUnit* installed();

    State& state() { return state_; }
    CallRecord& calls() { return calls_; }
    EventQueue& events() { return events_; }
    Services& services() { return *services_; }

    /// Delivers an event on the listener thread; returns at once.
    /// @param then runs there afterwards, unless a listener throws or the unit is stopped; may be empty
    /// @throws EventError if the event or its arguments are wrong.
    void raise(const std::string& name, const nlohmann::json& arguments, std::function<void()> then = {});

    /// As raise(), but waits for the delivery. On the listener thread it returns at once.
    void raiseAndWait(const std::string& name, const nlohmann::json& arguments);

    /// Runs the start action that the service registered for a module, on the calling thread.
    /// @returns its result.
    /// @throws EventError (NoStartAction)
    int startModule(int module);

    /// The service has started: if it has reported ready, starts and reports the boot modules.
    void serviceInitialised();

    /// Ends the listener thread and cancels delayed starts. The getters still work. Not on the listener thread.
    void stop();

private:
    State state_;
    CallRecord calls_;
    EventQueue events_;
    std::unique_ptr<Services> services_;
};

}  // namespace bench
