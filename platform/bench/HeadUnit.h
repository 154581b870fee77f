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

/// The simulated head unit: what the service finds behind the platform's getters. Any thread, unless told otherwise.
class HeadUnit
{
public:
    /// With the built-in state, on the process's timer thread.
    HeadUnit();

    /// @param timers what delays run on; not owned
    explicit HeadUnit(runtime::TimerService& timers);

    /// Uninstalls and stops it. Nobody may hold what the getters gave any more.
    ~HeadUnit();
    HeadUnit(const HeadUnit&) = delete;
    HeadUnit& operator=(const HeadUnit&) = delete;

    /// Merges `patch` over the state (RFC 7396).
    /// @throws StateError; nothing has changed then.
    void mergeState(const nlohmann::json& patch);

    /// Has the platform's getters serve this unit, in place of any other.
    void install();

    /// @returns the unit that the platform's getters serve, or null.
    static HeadUnit* installed();

    State& state() { return state_; }
    CallRecord& calls() { return calls_; }
    EventQueue& events() { return events_; }
    Services& services() { return *services_; }

    /// Has an event delivered on the listener thread; returns at once.
    /// @param then runs there after it, unless a listener throws or the unit is stopped before; may be empty
    /// @throws EventError when the event or its arguments are wrong.
    void raise(const std::string& name, const nlohmann::json& arguments, std::function<void()> then = {});

    /// As raise(), and returns after it has been delivered; on the listener thread itself at once.
    void raiseAndWait(const std::string& name, const nlohmann::json& arguments);

    /// Runs the start action that the service registered for a module, on the calling thread.
    /// @returns its result.
    /// @throws EventError (NoStartAction)
    int startModule(int module);

    /// The service's start is over: when it has reported ready, the boot modules are started and reported.
    void serviceInitialised();

    /// Ends the listener thread and gives up delayed starts; the getters go on serving. Not on the listener thread.
    void stop();

private:
    State state_;
    CallRecord calls_;
    EventQueue events_;
    std::unique_ptr<Services> services_;
};

}  // namespace bench
