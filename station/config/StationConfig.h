#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "protocol/toml/Problem.h"
#include "station/identity/UnitRules.h"

namespace station {

/// What one place of the plant has of its own: station.toml.
struct StationConfig {
    std::string file;  ///< empty: there is none, and the defaults hold
    std::string name;
    std::string line;
    // Paths of the file are relative to its folder.
    std::string results;             ///< empty for the default
    std::string registry;            ///< empty for the default
    std::vector<std::string> plans;  ///< folders that are searched for a plan's name
    identity::UnitRules unit;
};

/// Reads the text of a station.toml. Everything that is wrong is put into `problems`, sorted by place.
StationConfig readStationConfig(std::string_view text, const std::string& file, identity::Records records,
                                protocol::toml_file::Problems& problems);

}  // namespace station
