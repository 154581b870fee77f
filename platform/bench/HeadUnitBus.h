#pragma once

#include <memory>
#include <string>

#include "platform/bench/HeadUnit.h"

namespace bench {

/// The simulated head unit's D-Bus interface (com.zent.linux.headunit.xml), on a connection and a thread of its own:
/// what becomes of the bus touches nothing else in the process. When the connection is closed it connects once more;
/// without a bus the interface is gone for good.
class HeadUnitBus
{
public:
    /// @param unit not owned; stays until the end of this object
    explicit HeadUnitBus(HeadUnit& unit);

    /// As stop().
    ~HeadUnitBus();
    HeadUnitBus(const HeadUnitBus&) = delete;
    HeadUnitBus& operator=(const HeadUnitBus&) = delete;

    /// Offers the interface on the session bus. Waits a few seconds at most.
    /// @param error one line that says why, when there is no bus or another process has the name
    /// @returns whether the interface is there; the head unit works without it.
    bool start(std::string& error);

    /// Takes the interface away and gives the name back. May be called more than once; not on the listener thread.
    void stop();

private:
    class Session;

    HeadUnit& unit_;
    std::unique_ptr<Session> session_;
};

}  // namespace bench
