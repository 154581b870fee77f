#pragma once

#include <array>
#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/toml/TableReader.h"

namespace station::instrument {

using Duration = std::chrono::nanoseconds;

/// The keys of a step in a plan, which cannot name an instrument.
inline constexpr auto kStepKeys = std::to_array<std::string_view>({
    "answer",  "expect",      "expect_later", "headunit", "id",    "if_stored", "image",  "keep",   "mask",  "max_time",
    "name",    "on_failure",  "only_if",      "pause",    "poll",  "power",     "prompt", "repeat", "reply", "requires",
    "retries", "retry_delay", "run",          "send",     "store", "timeout",   "unique", "wait",   "with",
});

/// Where an instrument listens.
struct Address {
    bool serial = false;
    /// A host, or the path of a serial device.
    std::string target;
    /// Of a TCP port, or the baud rate.
    unsigned number = 0;
    /// As the station's file has it.
    std::string text;
};

/// Reads tcp:HOST[:PORT], tcp:[IPV6]:PORT or serial:DEVICE[:BAUD]. Throws protocol::UserError.
Address parseAddress(const std::string& text);

/// How the station switches the unit's power.
struct PowerControl {
    /// A program in the folder of scripts and its arguments; empty for an instrument.
    std::vector<std::string> run;
    std::string instrument;
    /// Commands of the instrument.
    std::string off;
    std::string on;
    /// Between off and on.
    Duration pause = std::chrono::seconds(1);
};

/// The fixture of a station, as its file describes it.
struct Equipment {
    std::map<std::string, Address, std::less<>> instruments;
    std::optional<PowerControl> power;
    /// The folder besides the plan's from which plans start programs; empty for none.
    std::string scripts;
};

/// Reads `scripts`, [instruments] and [power] of a station's file.
/// @param folder of the file, for relative paths
Equipment readEquipment(protocol::toml_file::TableReader& root, const std::filesystem::path& folder);

/// @returns the texts of an array that names a program and its arguments; none, with a problem, for anything else.
std::vector<std::string> programWords(protocol::toml_file::TableReader& reader, std::string_view key);

/// @returns the absolute path of the first of `folders` that has the program. An empty folder has none.
/// Throws protocol::UserError if none has it, if the name leads out of the folder, or if it cannot be executed.
std::string findProgram(const std::string& name, const std::vector<std::string>& folders);

/// @returns why a text is not one line that an instrument can get or give; empty if it is.
std::string notOneLine(std::string_view text);

}  // namespace station::instrument
