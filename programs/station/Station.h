#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "station/config/StationConfig.h"
#include "station/identity/IdentityGuard.h"
#include "station/record/RunRecord.h"

namespace programs::station_tool {

/// The station that runs the tool: its file and its registry. `config` may be called from any thread.
class Station
{
public:
    /// @param interrupt outlives this
    explicit Station(const station::Interrupt& interrupt);

    /// --config; set before the first call of `config`.
    std::string given;

    /// Reads the station's file at the first call. Throws UserError if it has an error.
    const station::StationConfig& config();

    /// @returns what a record says of the station.
    station::record::Run::StationInfo info(const std::string& operatorName);

    /// @returns the folders of plans: the station's in their order, then the one that comes with the tool.
    std::vector<std::string> planFolders();

    /// @returns the path of a plan, see station::findPlan.
    std::string findPlan(const std::string& plan) { return station::findPlan(plan, planFolders()); }

    std::unique_ptr<station::identity::Registry> openRegistry(
        station::identity::Registry::Access access = station::identity::Registry::Access::kGive);

    /// Puts the registry's guard before every connection from now on.
    void guardConnections();

    const std::vector<station::identity::Record>& records() const { return records_; }

    /// What the verb knows about the unit; not to be changed while several threads have connections.
    station::identity::GuardTerms terms;

private:
    const station::Interrupt& interrupt_;
    const std::vector<station::identity::Record> records_;
    std::once_flag read_;
    station::StationConfig config_;
};

}  // namespace programs::station_tool
