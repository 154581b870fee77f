#pragma once

#include <string>
#include <vector>

#include "programs/station/Tool.h"

namespace programs::station_tool {

struct PlanRunOptions {
    std::string plan;
    std::vector<station::PortSpec> ports;
    std::string answers;
    std::string results;
    std::string operatorName;
    std::string serial;
    double reconnectSeconds = 10;
    bool destructive = false;
    bool quiet = false;
    bool noRecord = false;
};

/// Runs a plan at all ports at once and waits for the end. @returns the exit status.
int runPlanAtPorts(Tool& tool, const PlanRunOptions& options);

}  // namespace programs::station_tool
