#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/bench/HeadUnit.h"

namespace bench {

/// The D-Bus interface of the simulated head unit (com.zent.linux.headunit.xml), on a connection and a thread of its
/// own, so that the bus does not affect the rest of the process. Connects again when the connection closes. If there is
/// no bus any more, the interface ends for good.
class HeadUnitBus
{
public:
    /// @param unit not owned; outlives this object
    /// @param powerCycle starts the process again, on the thread of the bus; returns only if it cannot
    explicit HeadUnitBus(
        HeadUnit& unit, std::function<void()> powerCycle = [] {});

    /// As stop().
    ~HeadUnitBus();
    HeadUnitBus(const HeadUnitBus&) = delete;
    HeadUnitBus& operator=(const HeadUnitBus&) = delete;

    /// Exports the interface on the session bus. Waits for a few seconds at most.
    /// @param error the reason in one line, if there is no bus or another process owns the name
    /// @returns whether the interface is exported; the head unit also works without it.
    bool start(std::string& error);

    /// Removes the interface and releases the name. May be called more than once. Not on the listener thread.
    void stop();

private:
    class Session;

    HeadUnit& unit_;
    const std::function<void()> powerCycle_;
    std::unique_ptr<Session> session_;
};

}  // namespace bench
