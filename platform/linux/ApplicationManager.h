#pragma once

#include <KYRAppMgr.h>

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include "platform/linux/Bus.h"
#include "platform/linux/Status.h"
#include "platform/linux/UnitConfig.h"

namespace unit {

/// systemd's manager of units. On the loop's thread, but for construction, destruction and isThere().
class Systemd
{
public:
    /// @param board shows as `app-manager` whether systemd is there
    Systemd(Bus& systemBus, StatusBoard& board);

    /// Any thread.
    bool isThere() const { return isThere_; }

    /// Start and stop a unit; a failure is reported.
    void start(const std::string& unit);
    void stop(const std::string& unit);

private:
    std::atomic<bool> isThere_ = false;
    BusObject manager_;
};

/// A unit of systemd. On the loop's thread, but for construction and destruction.
class SystemdUnit
{
public:
    struct Events {
        /// systemd has told the unit's ActiveState.
        std::function<void(const std::string& state)> state = [](const std::string&) {};
        /// systemd has loaded the unit and its state is known (`reason` is empty), or the unit cannot be used.
        std::function<void(const std::string& reason)> presence = [](const std::string&) {};
    };

    SystemdUnit(Bus& systemBus, const std::string& unit, Events events);

    /// Calls "Start" or "Stop", as BusObject::call().
    void call(const std::string& method, BusObject::Done done = {});

private:
    void tell(const std::string& unit, const Events& events) const;

    BusObject object_;
    BusObject manager_;
};

/// The application manager over systemd: a module is up once its systemd unit is active, or, without one, as soon as
/// the service has started.
class ApplicationManager : public KYRAppMgrService
{
public:
    ApplicationManager(UnitConfig::ApplicationManager config, Bus& systemBus, Systemd& systemd);

    /// The manager is a part of this process: it can always be reached.
    int InitInstance() override { return 1; }
    void NotifyModuleInitBegin(ServiceModule) override {}
    void NotifyModuleReady(ServiceModule module) override;
    void SetStartServiceAction(ServiceModule module, StartAction action) override;

    /// Starts the systemd unit of Wi-Fi; without one, calls what setWifiStart() has set.
    int RequestStartModuleProcess(int nProcess, int nRequester) override;

    /// Before the service starts. `start` runs on the loop's thread.
    void setWifiStart(std::function<void()> start) { startWifi_ = std::move(start); }

    /// A module without a systemd unit is up. On the loop's thread. May be called more than once.
    void moduleIsUp(ServiceModule module);

    /// The service has started: from now on modules come up, on the loop's thread.
    void serviceStarted();

private:
    void bringUp(ServiceModule module);

    const UnitConfig::ApplicationManager config_;
    Bus& bus_;
    Systemd& systemd_;
    std::function<void()> startWifi_;
    std::atomic<bool> isReady_ = false;
    std::mutex mutex_;
    std::map<ServiceModule, StartAction> actions_;  // guarded by mutex_
    std::map<ServiceModule, SystemdUnit> units_;    // of the loop, from serviceStarted() on
    bool hasStarted_ = false;                       // of the loop
    std::set<ServiceModule> waiting_;               // up before the service has started; of the loop
    std::set<ServiceModule> up_;                    // of the loop
};

}  // namespace unit
