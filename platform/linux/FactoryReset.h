#pragma once

#include <KYRFileMgr.h>
#include <KYRU6Persist.h>

#include <functional>
#include <optional>
#include <string>

#include "platform/linux/ApplicationManager.h"
#include "platform/linux/Bus.h"
#include "platform/linux/Status.h"
#include "platform/linux/UnitConfig.h"

namespace unit {

/// @returns what tells a start of a unit from its states, for SystemdUnit: calls `started` when the unit begins to
/// start, but not if it runs already when it is seen first.
std::function<void(const std::string& state)> onStart(std::function<void()> started);

/// The file manager over systemd: a unit deletes the user's data.
class FileManager : public KYRFileMgr
{
public:
    FileManager(std::string unit, Bus& systemBus, Systemd& systemd, StatusBoard& board);

    void ClearUserData() override;

private:
    const std::string unit_;
    Loop& loop_;
    Systemd& systemd_;
    SystemdUnit followed_;
};

/// Persistence over systemd: a reset to the factory state is the start of a unit.
class Persistence : public KYRU6Persist
{
public:
    Persistence(const UnitConfig::Persistence& config, Bus& systemBus, StatusBoard& board);

private:
    void follow(std::optional<SystemdUnit>& followed, Bus& systemBus, const std::string& key, const std::string& unit,
                void (IKYRU6PersistListener::*event)());

    PartsStatus parts_;
    std::optional<SystemdUnit> reset_;
    std::optional<SystemdUnit> autoReset_;
};

}  // namespace unit
