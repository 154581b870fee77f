#pragma once

#include <string>

#include "station/plan/Load.h"

namespace programs::station_tool {

/// A plan as it lies on the disk.
struct PlanFile {
    std::string path;
    std::string sha256;
    station::plan::Loaded loaded;
};

/// Reads and checks a plan. A file that cannot be read has one problem, at its beginning.
PlanFile readPlan(const std::string& path);

/// Prints FILE:LINE:COLUMN: TEXT, a line each, on standard error.
void printProblems(const std::string& path, const protocol::toml_file::Problems& problems, const char* kind = "");

}  // namespace programs::station_tool
