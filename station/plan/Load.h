#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "protocol/toml/Problem.h"
#include "station/plan/Plan.h"

namespace station::plan {

struct Loaded {
    /// Nothing when there are problems.
    std::optional<Plan> plan;
    /// All that is wrong, by place. A file that is no TOML has one: nobody knows how it goes on.
    protocol::toml_file::Problems problems;
    /// What is right and deserves a thought.
    protocol::toml_file::Problems warnings;
};

/// Reads a plan and checks it against the catalogue. Never throws on account of the text.
/// @param path where the text comes from; also gives the plan its name when it has none
Loaded load(std::string_view text, const std::string& path, protocol::catalogue::Groups groups);

/// Reads a file. Throws std::system_error when it cannot be read.
std::string readFile(const std::string& path);

}  // namespace station::plan
