#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/toml/Problem.h"

namespace line {

/// What goes wrong on one direction of a line. docs/bench.md explains each key.
struct Faults {
    // Chances for each frame, from 0 to 1.
    double drop = 0;
    double corrupt = 0;
    double duplicate = 0;
    double split = 0;
    double hangUp = 0;

    double noise = 0;   ///< bursts per second
    double delay = 0;   ///< seconds
    double jitter = 0;  ///< seconds, the most that comes on top of the delay
    double baud = 0;    ///< bits per second; 0: as fast as the ends are
    double away = 1;    ///< seconds for which the line is away after it hung up

    bool operator==(const Faults&) const = default;
};

enum class Direction : std::uint8_t { kToUnit, kToStation };

/// The faults of both directions, indexed by Direction.
struct LineFaults {
    Faults toUnit;
    Faults toStation;

    Faults& of(Direction direction) { return direction == Direction::kToUnit ? toUnit : toStation; }
    bool operator==(const LineFaults&) const = default;
};

/// @returns the faults as JSON: {"to_unit": {"drop": 0.01, …}, "to_station": {…}}.
nlohmann::ordered_json toJson(const LineFaults& faults);

/// Some faults and their new values.
class Change
{
public:
    /// Adds a key such as "drop", or "to_unit.drop" for one direction, and its value as a user writes it: "1%".
    /// @returns what is wrong with them; empty for nothing.
    std::string add(std::string_view key, const std::string& value);

    /// Adds the members of an object such as {"drop": "1%", "to_unit": {"delay": 0.2}}.
    /// @returns what is wrong with it; empty for nothing.
    std::string addObject(const nlohmann::json& object);

    void applyTo(LineFaults& faults) const;

private:
    std::string addJson(const std::string& key, const nlohmann::json& value);

    struct One {
        std::optional<Direction> direction;  // nothing: both
        double Faults::*member;
        double value;
    };
    std::vector<One> all_;
};

/// The times at which faults change, from a file.
struct Script {
    struct Event {
        double time = 0;  ///< seconds since the line began
        Change change;
        std::optional<double> hangUpFor;  ///< seconds
    };

    std::optional<std::uint64_t> seed;
    Change begin;
    std::vector<Event> events;  ///< by time
};

/// Reads the text of a script. With problems, the result is of no use.
Script parseScript(std::string_view text, protocol::toml_file::Problems& problems);

/// Reads a script, a regular file of at most 1 MiB. Throws UserError if it cannot be read.
/// @param mistakes gets a line for each mistake
Script loadScript(const std::string& path, std::vector<std::string>& mistakes);

}  // namespace line
