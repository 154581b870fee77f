#pragma once

#include <chrono>
#include <functional>
#include <optional>

#include "platform/linux/ApplicationManager.h"
#include "platform/linux/Audio.h"
#include "platform/linux/Bluetooth.h"
#include "platform/linux/Bus.h"
#include "platform/linux/FactoryReset.h"
#include "platform/linux/Location.h"
#include "platform/linux/Loop.h"
#include "platform/linux/Power.h"
#include "platform/linux/SourceTable.h"
#include "platform/linux/Status.h"
#include "platform/linux/StatusBus.h"
#include "platform/linux/SystemInformation.h"
#include "platform/linux/SystemUpdate.h"
#include "platform/linux/Telephony.h"
#include "platform/linux/Tuner.h"
#include "platform/linux/UnitConfig.h"
#include "platform/linux/VehicleData.h"
#include "platform/linux/Wifi.h"
#include "platform/runtime/TtyWire.h"

namespace unit {

/// The head unit on stock Linux behind the platform's getters.
class Unit
{
public:
    enum class Role {
        kServe,
        /// Takes nothing that a running service has: its name, the agent of pairings, its GPIO lines. Switches no modem
        /// on.
        kCheck,
    };

    /// Begins to look for the backends.
    explicit Unit(const UnitConfig& config, Role role = Role::kServe);
    ~Unit();
    Unit(const Unit&) = delete;
    Unit& operator=(const Unit&) = delete;

    /// From now on the platform's getters return the interfaces of this unit; null for those that are off. An interface
    /// lives as long as the unit, and what is absent is inside it: the service asks for most of them once.
    void install();

    /// Feeds a watchdog in each `interval`, as long as the line delivers and the backends run. Before the line has a
    /// receiver.
    /// @param feed runs on the backends' thread
    void feedWatchdog(runtime::TtyWire& wire, std::chrono::milliseconds interval, std::function<void()> feed);

    StatusBoard& board() { return board_; }

private:
    StatusBoard board_;
    Loop loop_;
    Bus systemBus_{loop_, G_BUS_TYPE_SYSTEM};
    Bus sessionBus_{loop_, G_BUS_TYPE_SESSION};
    std::optional<StatusBus> statusBus_;
    std::optional<BusStatus> systemBusStatus_;
    std::optional<BusStatus> sessionBusStatus_;
    Systemd systemd_{systemBus_, board_};

public:
    // Empty: off. After the buses, which they use.
    std::optional<ApplicationManager> appManager;
    std::optional<Power> power;
    std::optional<Bluetooth> bluetooth;
    std::optional<Telephony> phone;
    std::optional<Location> location;
    std::optional<Audio> audio;
    std::optional<SourceTable> source;
    std::optional<VehicleData> vehicleData;
    std::optional<SystemUpdate> systemUpdate;
    std::optional<FileManager> fileManager;
    std::optional<Persistence> persistence;
    std::optional<Tuner> tuner;
    std::optional<Wifi> wifi;
    std::optional<SystemInformation> systemInformation;
    std::optional<Configuration> configuration;
};

}  // namespace unit
