#include "platform/linux/ApplicationManager.h"

#include <fmt/format.h>
#include <systemd/sd-bus.h>

#include <cstdlib>
#include <memory>
#include <utility>

#include "platform/runtime/Listeners.h"
#include "platform/runtime/Report.h"

namespace unit {
namespace {

constexpr const char* kSystemd = "org.freedesktop.systemd1";
constexpr std::chrono::seconds kUnitDeadline{10};
constexpr int kWifiProcess = 1;

BusObject::Address addressOfManager()
{
    return {kSystemd, "/org/freedesktop/systemd1", "org.freedesktop.systemd1.Manager"};
}

BusObject::Address addressOfUnit(const std::string& unit)
{
    char* path = nullptr;
    sd_bus_path_encode("/org/freedesktop/systemd1/unit", unit.c_str(), &path);
    const std::unique_ptr<char, decltype(&std::free)> owner(path, std::free);
    return {kSystemd, path == nullptr ? "/" : path, "org.freedesktop.systemd1.Unit"};
}

/// @param state LoadState of the unit; null: systemd does not tell the properties of an object without a unit's name
/// @returns why the unit cannot be used; empty if it can.
std::string problemOf(const std::string& unit, GVariant* state)
{
    const std::string load = state == nullptr ? "" : g_variant_get_string(state, nullptr);
    if (load == "loaded") {
        return "";
    }
    if (load == "not-found") {
        return fmt::format("systemd has no unit {}; install it, or correct its name", unit);
    }
    if (load.empty()) {
        return fmt::format("systemd: expected the name of a unit, such as NAME.service, got {}", unit);
    }
    return fmt::format("unit {0}: expected it to be loaded, got {1}; 'systemctl status {0}' says why", unit, load);
}

}  // namespace

Systemd::Systemd(Bus& systemBus, StatusBoard& board)
    : manager_(systemBus, addressOfManager(), {.presence = [this, &board](const std::string& reason) {
                   isThere_ = reason.empty();
                   board.set("app-manager", isThere_ ? State::kUp : State::kAbsent, reason);
                   if (isThere_) {
                       // Without a subscriber systemd says nothing about its units.
                       manager_.call("Subscribe", nullptr, kUnitDeadline);
                   }
               }})
{
}

void Systemd::start(const std::string& unit)
{
    manager_.call("StartUnit", g_variant_new("(ss)", unit.c_str(), "replace"), kUnitDeadline);
}

void Systemd::stop(const std::string& unit)
{
    manager_.call("StopUnit", g_variant_new("(ss)", unit.c_str(), "replace"), kUnitDeadline);
}

SystemdUnit::SystemdUnit(Bus& systemBus, const std::string& unit, Events events)
    : object_(systemBus, addressOfUnit(unit),
              {.presence =
                   [presence = events.presence](const std::string& reason) {
                       if (!reason.empty()) {
                           presence(reason);
                       }
                   },
               .properties = [this, unit, events] { tell(unit, events); }})
    , manager_(systemBus, addressOfManager(),
               {.presence = [](const std::string&) {},
                .signal =
                    [this](const std::string& name, GVariant* arguments) {
                        gboolean begins = FALSE;
                        if (name == "Reloading" && g_variant_is_of_type(arguments, G_VARIANT_TYPE("(b)"))) {
                            g_variant_get(arguments, "(b)", &begins);
                        }
                        if ((name == "Reloading" && !begins) || name == "UnitFilesChanged") {
                            object_.refresh("LoadState");  // systemd does not tell its changes
                        }
                    }})
{
}

void SystemdUnit::call(const std::string& method, BusObject::Done done)
{
    object_.call(method, g_variant_new("(s)", "replace"), kUnitDeadline, std::move(done));
}

void SystemdUnit::tell(const std::string& unit, const Events& events) const
{
    if (const auto state = object_.property("ActiveState", G_VARIANT_TYPE_STRING)) {
        events.state(g_variant_get_string(state.get(), nullptr));
    }
    const auto load = object_.property("LoadState", G_VARIANT_TYPE_STRING);
    events.presence(problemOf(unit, load.get()));
}

ApplicationManager::ApplicationManager(UnitConfig::ApplicationManager config, Bus& systemBus, Systemd& systemd)
    : config_(std::move(config)), bus_(systemBus), systemd_(systemd)
{
}

void ApplicationManager::NotifyModuleReady(ServiceModule)
{
    isReady_ = true;
}

void ApplicationManager::SetStartServiceAction(ServiceModule module, StartAction action)
{
    const std::lock_guard lock(mutex_);
    actions_[module] = action;
}

int ApplicationManager::RequestStartModuleProcess(int nProcess, int)
{
    const auto unit = config_.units.find(MODULE_WIFI);
    if (nProcess == kWifiProcess && unit == config_.units.end() && startWifi_) {
        bus_.loop().post(startWifi_);
        return 1;
    }
    if (nProcess != kWifiProcess || unit == config_.units.end() || !systemd_.isThere()) {
        runtime::report("app-manager: a start was requested, but no unit of the module wifi can be started");
        return 0;
    }
    bus_.loop().post([this, name = unit->second] { systemd_.start(name); });
    return 1;
}

void ApplicationManager::serviceStarted()
{
    if (!isReady_) {
        return;
    }
    bus_.loop().post([this] {
        hasStarted_ = true;
        waiting_.insert(config_.modules.begin(), config_.modules.end());
        for (const ServiceModule module : waiting_) {
            bringUp(module);
        }
        for (const auto& entry : config_.units) {
            const ServiceModule module = entry.first;
            units_.try_emplace(module, bus_, entry.second,
                               SystemdUnit::Events{.state = [this, module](const std::string& state) {
                                   if (state == "active") {
                                       bringUp(module);
                                   }
                               }});
        }
    });
}

void ApplicationManager::moduleIsUp(ServiceModule module)
{
    if (config_.units.contains(module)) {
        return;
    }
    if (hasStarted_) {
        bringUp(module);
    } else {
        waiting_.insert(module);
    }
}

/// Once: the service does not stop a module.
void ApplicationManager::bringUp(ServiceModule module)
{
    if (!up_.insert(module).second) {
        return;
    }
    StartAction action = nullptr;
    {
        const std::lock_guard lock(mutex_);
        if (const auto found = actions_.find(module); found != actions_.end()) {
            action = found->second;
        }
    }
    if (action != nullptr) {
        action(module);
    }
    runtime::tellListeners(*this, [module](IKYRAppListener& listener) {
        AppBootInfo info{module};
        listener.OnModuleStatusChanged(info);
    });
}

}  // namespace unit
