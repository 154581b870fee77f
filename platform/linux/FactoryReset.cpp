#include "platform/linux/FactoryReset.h"

#include <utility>

#include "platform/runtime/Listeners.h"

namespace unit {

std::function<void(const std::string& state)> onStart(std::function<void()> started)
{
    // A unit that runs once may never be active: it ends while it is activating.
    return [started = std::move(started), was = std::optional<bool>()](const std::string& state) mutable {
        const bool runs = state == "activating" || state == "active" || state == "reloading";
        if (!std::exchange(was, runs).value_or(true) && runs) {
            started();
        }
    };
}

FileManager::FileManager(std::string unit, Bus& systemBus, Systemd& systemd, StatusBoard& board)
    : unit_(std::move(unit))
    , loop_(systemBus.loop())
    , systemd_(systemd)
    , followed_(systemBus, unit_, {.presence = [&board](const std::string& reason) {
                    board.set("file-manager", reason.empty() ? State::kUp : State::kAbsent, reason);
                }})
{
}

void FileManager::ClearUserData()
{
    loop_.post([this] { systemd_.start(unit_); });
}

Persistence::Persistence(const UnitConfig::Persistence& config, Bus& systemBus, StatusBoard& board)
    : parts_(board, "persistence")
{
    follow(reset_, systemBus, "reset-unit", config.resetUnit, &IKYRU6PersistListener::OnU6PersistFactoryResetMode);
    follow(autoReset_, systemBus, "auto-reset-unit", config.autoResetUnit,
           &IKYRU6PersistListener::OnU6PersistAutoFactoryResetMode);
    parts_.show();
}

void Persistence::follow(std::optional<SystemdUnit>& followed, Bus& systemBus, const std::string& key,
                         const std::string& unit, void (IKYRU6PersistListener::*event)())
{
    if (unit.empty()) {
        return;
    }
    parts_.add(key);
    followed.emplace(systemBus, unit,
                     SystemdUnit::Events{onStart([this, event] {
                                             runtime::tellListeners(*this, [event](IKYRU6PersistListener& listener) {
                                                 (listener.*event)();
                                             });
                                         }),
                                         [this, key](const std::string& reason) { parts_.set(key, reason); }});
}

}  // namespace unit
