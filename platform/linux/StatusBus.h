#pragma once

#include <string>

#include "platform/linux/Bus.h"
#include "platform/linux/Status.h"

namespace unit {

/// The states of the interfaces on the session bus: com.zent.linux.unit. On the loop's thread.
class StatusBus : private Bus::Follower
{
public:
    StatusBus(Bus& sessionBus, StatusBoard& board);
    ~StatusBus() override;

private:
    void onBus(GDBusConnection* connection, const std::string& reason) override;
    void release();

    Bus& bus_;
    StatusBoard& board_;
    host::GlibPtr<GDBusInterfaceSkeleton> object_;
    guint owner_ = 0;
};

/// A bus as a line of the board. On the loop's thread.
class BusStatus : private Bus::Follower
{
public:
    BusStatus(Bus& bus, StatusBoard& board, std::string name);
    ~BusStatus() override;

private:
    void onBus(GDBusConnection* connection, const std::string& reason) override;

    Bus& bus_;
    StatusBoard& board_;
    const std::string name_;
};

}  // namespace unit
