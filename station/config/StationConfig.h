#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/toml/Problem.h"
#include "station/identity/UnitRules.h"
#include "station/instrument/Equipment.h"
#include "station/plan/Variables.h"
#include "web/Login.h"

namespace station {

/// A place for a unit on the station's fixture.
struct Slot {
    std::string name;
    std::string port;     ///< PATH[,BAUD]
    std::string barcode;  ///< that selects the slot; empty for none
};

/// What the station tests, by the serial numbers of its units.
struct Product {
    std::string pattern;  ///< regular expression (RE2) for the whole serial number; empty for any
    std::string plan;
    bool destructive = false;  ///< whether the plan may send commands that cannot be undone
};

/// How browsers reach the station.
struct WebFace {
    std::string address = "127.0.0.1";
    std::uint16_t port = 8080;
    std::string certificate;  ///< path of a PEM file; empty for none
    std::string key;
    std::vector<std::string> names;  ///< of this machine, as browsers know it
};

/// The settings of a station: station.toml.
struct StationConfig {
    std::string file;  ///< empty for none: the defaults hold
    std::string name;
    std::string line;
    // Paths in the file are relative to its folder.
    std::string results;             ///< empty for the default
    std::string registry;            ///< empty for the default
    std::vector<std::string> plans;  ///< folders that are searched for a plan's name
    identity::UnitRules unit;
    std::vector<plan::GivenValue> parameters;  ///< for plans that have parameters of these names
    instrument::Equipment equipment;
    std::vector<Slot> slots;  ///< in their order on the fixture
    std::vector<Product> products;
    std::vector<web::Account> accounts;
    WebFace web;
};

/// Reads the text of a station.toml. Puts all its errors into `problems`, sorted by place.
StationConfig readStationConfig(std::string_view text, const std::string& file, identity::Records records,
                                protocol::toml_file::Problems& problems);

/// @returns the path of the station's file: `given`, else $ENGINEERING_STATION, else /etc/engineering/station.toml if
/// it exists; empty for none.
std::string findStationFile(const std::string& given);

/// @returns the folder of the files that the tool keeps: $XDG_STATE_HOME/engineering-station.
std::string stateFolder();

/// @returns the path of the registry: the station's, else in the state folder.
std::string registryPath(const StationConfig& config);

/// @returns the path of a plan: `plan` itself if it is a path or a file, else that of the first folder that has it.
/// Throws UserError if none has it.
std::string findPlan(const std::string& plan, const std::vector<std::string>& folders);

/// @returns a line for each path in the file that this machine cannot use.
std::vector<std::string> unusablePaths(const StationConfig& config);

}  // namespace station
