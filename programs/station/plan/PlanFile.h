#pragma once

#include <filesystem>
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

/// Where the plans that come with the tool are by default, from the root of the source tree.
inline constexpr const char* kShippedPlans = "share/plans";

/// @param program path of the running program, in build/PRESET/bin of the source tree or in bin where it is installed
/// @returns the directory of the plans that come with it: below the working directory, else of the source tree, else
/// where they are installed; kShippedPlans when there is none.
std::string shippedPlans(const std::filesystem::path& program);

/// Prints FILE:LINE:COLUMN: TEXT, a line each, on standard error.
void printProblems(const std::string& path, const protocol::toml_file::Problems& problems, const char* kind = "");

}  // namespace programs::station_tool
