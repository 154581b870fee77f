#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "protocol/toml/Problem.h"
#include "station/instrument/Equipment.h"
#include "station/plan/Plan.h"
#include "station/plan/Variables.h"

namespace station::plan {

struct Loaded {
    /// Nothing if there are problems.
    std::optional<Plan> plan;
    /// In the order of their places. A file that is not TOML has only one.
    protocol::toml_file::Problems problems;
    /// Sound steps that deserve a thought.
    protocol::toml_file::Problems warnings;
    /// The names and contents of the files that the plan uses, one after the other; empty if there is none.
    std::string used;
};

/// The values for the parameters of a plan.
struct ParameterValues {
    /// In rising precedence. A parameter that the plan does not have is a problem in a word of the command line only.
    std::vector<GivenValue> given = {};
    /// Whether a parameter without value is a problem, as it is for a run.
    bool complete = true;
};

/// Reads a plan and checks it against the catalogue. Throws nothing, whatever the text is.
/// @param path of the file of the text
/// @param equipment of the station that is to run it
Loaded load(std::string_view text, const std::string& path, protocol::catalogue::Groups groups,
            const ParameterValues& values = {}, const instrument::Equipment& equipment = {});

/// Reads a file of up to 4 MiB. Throws std::system_error if it cannot be read.
std::string readFile(const std::string& path);

/// @returns the problem of a file that readFile() cannot read.
protocol::toml_file::Problem unreadable(const std::system_error& error);

/// A plan on the disk.
struct PlanFile {
    std::string path;
    /// Of the file and of all that it uses.
    std::string sha256;
    Loaded loaded;
};

/// Reads and checks a plan. A file that cannot be read has one problem, unreadable().
PlanFile readPlan(const std::string& path, protocol::catalogue::Groups groups, const ParameterValues& values = {},
                  const instrument::Equipment& equipment = {});

/// The default folder of the plans that come with the tool, from the root of the source tree.
inline constexpr const char* kShippedPlans = "share/plans";

/// @param program path of the running program, in build/PRESET/bin of the source tree or in bin where it is installed
/// @returns the directory of the plans that come with it: below the working directory, else of the source tree, else
/// where they are installed; kShippedPlans if there is none.
std::string shippedPlans(const std::filesystem::path& program);

}  // namespace station::plan
