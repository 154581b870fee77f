#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "station/config/StationConfig.h"
#include "station/identity/IdentityGuard.h"

namespace programs::station_tool {

/// The station that the tool stands at: its file and its registry. `config` may be called from any thread.
class Station
{
public:
    /// @param interrupt outlives this
    explicit Station(const station::Interrupt& interrupt);

    /// --config; to be set before `config` is called first.
    std::string given;

    /// @returns the path of the station's file: --config, $ENGINEERING_STATION, /etc/engineering/station.toml when it
    /// is there; empty for none.
    std::string file() const;

    /// Reads the file at the first call. Throws WrongUse when there is anything wrong with it.
    const station::StationConfig& config();

    /// @returns the folders of plans: the station's in their order, then the one that comes with the tool.
    std::vector<std::string> planFolders();

    /// @returns the plan of this name in the first of these folders that has it; `plan` itself when it is a path, or a
    /// file. Throws WrongUse when there is none.
    std::string findPlan(const std::string& plan);

    /// @returns the path of the registry. Throws WrongUse when there is no place for one.
    std::string registryPath();

    std::unique_ptr<station::identity::Registry> openRegistry(
        station::identity::Registry::Access access = station::identity::Registry::Access::kGive);

    /// Lets every connection from now on ask the registry.
    void guardConnections();

    const std::vector<station::identity::Record>& records() const { return records_; }

    /// What the verb knows of the unit that it writes to; not to be changed while several threads have connections.
    station::identity::GuardTerms terms;

private:
    const station::Interrupt& interrupt_;
    std::vector<station::identity::Record> records_;
    std::once_flag read_;
    station::StationConfig config_;
};

/// @returns the folder in which the tool keeps what lasts: $XDG_STATE_HOME/engineering-station; empty without a home.
std::string stateFolder();

}  // namespace programs::station_tool
