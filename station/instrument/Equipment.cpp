#include "station/instrument/Equipment.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <algorithm>

#include "host/Baud.h"
#include "protocol/Errors.h"
#include "protocol/Text.h"

namespace station::instrument {

namespace fs = std::filesystem;
using protocol::inQuotes;
using protocol::toml_file::TableReader;

namespace {

constexpr unsigned kScpiPort = 5025;

/// @returns the number behind the last ':' of `target`, which it removes; nothing without one.
std::optional<unsigned> takeNumber(std::string& target)
{
    const auto colon = target.rfind(':');
    if (colon == std::string::npos) {
        return std::nullopt;
    }
    const std::string digits = target.substr(colon + 1);
    const bool plain = !digits.empty() && digits.size() <= 7 &&
                       std::ranges::all_of(digits, [](char c) { return c >= '0' && c <= '9'; });
    if (!plain) {
        return std::nullopt;
    }
    target.erase(colon);
    return static_cast<unsigned>(std::stoul(digits));
}

bool isInstrumentName(std::string_view name)
{
    return !name.empty() && std::ranges::find(kStepKeys, name) == kStepKeys.end() &&
           std::ranges::all_of(name, [](char c) {
               return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                      c == '_';
           });
}

void readInstruments(const toml::table& table, protocol::toml_file::Problems& problems, Equipment& equipment)
{
    for (const auto& [key, node] : table) {
        const std::string name(key.str());
        if (!isInstrumentName(name)) {
            protocol::toml_file::report(
                problems, node,
                fmt::format("expected a name of letters, digits, '-' and '_' that is not a key of a step, got {}",
                            inQuotes(name)));
        }
        if (!node.is_table()) {
            protocol::toml_file::report(problems, node,
                                        fmt::format("expected a section [instruments.{}], got a value", name));
            continue;
        }
        TableReader section(*node.as_table(), fmt::format("section [instruments.{}]", name), problems);
        const std::string scpi = section.text("scpi", true);
        try {
            if (!scpi.empty()) {
                equipment.instruments.insert_or_assign(name, parseAddress(scpi));
            }
        } catch (const protocol::UserError& error) {
            section.report("scpi", error.what());
        }
        section.finish();
    }
}

std::string command(TableReader& section, std::string_view key)
{
    const std::string text = section.text(key, true);
    if (const std::string wrong = notOneLine(text); !wrong.empty()) {
        section.report(key, fmt::format("{}: {}", inQuotes(key), wrong));
    }
    return text;
}

PowerControl readPower(TableReader& section, const Equipment& equipment)
{
    PowerControl power;
    const toml::node* const run = section.node("run");
    if ((run == nullptr) == (section.node("instrument") == nullptr)) {
        protocol::toml_file::report(section.problems(), section.raw(),
                                    "section [power]: expected either 'run' or 'instrument'");
    }
    if (run != nullptr) {
        power.run = programWords(section, "run");
        return power;
    }
    power.instrument = section.text("instrument");
    if (!power.instrument.empty() && !equipment.instruments.contains(power.instrument)) {
        section.report("instrument",
                       fmt::format("'instrument': expected a section [instruments.{}], got none", power.instrument));
    }
    power.off = command(section, "off");
    power.on = command(section, "on");
    constexpr double kLongest = 60;
    if (const auto pause = section.seconds("pause", 0, kLongest)) {
        power.pause = std::chrono::duration_cast<Duration>(std::chrono::duration<double>(*pause));
    }
    return power;
}

}  // namespace

std::vector<std::string> programWords(TableReader& reader, std::string_view key)
{
    std::vector<std::string> words;
    const toml::node* const node = reader.node(key);
    const toml::array* const list = node == nullptr ? nullptr : node->as_array();
    const auto isWord = [](const toml::node& each) {
        return each.is_string() && each.as_string()->get().find('\0') == std::string::npos;
    };
    if (list == nullptr || list->empty() || !std::ranges::all_of(*list, isWord)) {
        if (node != nullptr) {
            protocol::toml_file::report(
                reader.problems(), *node,
                fmt::format("{}: expected a program and its arguments, as in [\"dmm.py\", \"volts\"]", inQuotes(key)));
        }
        return words;
    }
    for (const toml::node& each : *list) {
        words.push_back(each.as_string()->get());
    }
    return words;
}

Address parseAddress(const std::string& text)
{
    const auto refuse = [&] {
        return protocol::UserError(
            fmt::format("expected tcp:HOST[:PORT] or serial:DEVICE[:BAUD], got {}", inQuotes(text)));
    };
    Address address;
    address.text = text;
    const auto colon = text.find(':');
    const std::string kind = text.substr(0, colon);
    if (colon == std::string::npos || (kind != "tcp" && kind != "serial") || protocol::printable(text) != text) {
        throw refuse();
    }
    address.serial = kind == "serial";
    address.target = text.substr(colon + 1);
    const bool bracketed = address.target.starts_with('[');
    const auto number = bracketed && address.target.ends_with(']') ? std::nullopt : takeNumber(address.target);
    address.number = number.value_or(address.serial ? host::kDefaultBaud : kScpiPort);
    if (bracketed && address.target.ends_with(']')) {
        address.target = address.target.substr(1, address.target.size() - 2);
    } else if (!address.serial && address.target.find_first_of(":[]/ ") != std::string::npos) {
        throw refuse();
    }
    if (address.target.empty() || (!address.serial && (address.number == 0 || address.number > 65535))) {
        throw refuse();
    }
    if (address.serial && !host::speedOf(address.number)) {
        throw protocol::UserError(
            fmt::format("expected a baud rate such as 115200, got {} in {}", address.number, inQuotes(text)));
    }
    return address;
}

Equipment readEquipment(TableReader& root, const fs::path& folder)
{
    Equipment equipment;
    if (const std::string scripts = root.text("scripts"); !scripts.empty()) {
        equipment.scripts = (folder / scripts).lexically_normal().string();
    }
    if (const toml::table* table = root.table("instruments")) {
        readInstruments(*table, root.problems(), equipment);
    }
    if (const toml::table* table = root.table("power")) {
        TableReader section(*table, "section [power]", root.problems());
        equipment.power = readPower(section, equipment);
        section.finish();
        if (!equipment.power->run.empty() && equipment.scripts.empty()) {
            section.report("run",
                           "'run': expected the folder of programs as 'scripts' at the top of the file, got none");
        }
    }
    return equipment;
}

std::string findProgram(const std::string& name, const std::vector<std::string>& folders)
{
    const fs::path path(name);
    if (name.empty() || name.find('\0') != std::string::npos || path.is_absolute() ||
        std::find(path.begin(), path.end(), "..") != path.end()) {
        throw protocol::UserError(
            fmt::format("expected a program in the plan's folder or in 'scripts', got {}", inQuotes(name)));
    }
    std::vector<std::string> looked;
    for (const std::string& folder : folders) {
        std::error_code error;
        const fs::path base = fs::canonical(folder, error);
        if (folder.empty() || error) {
            continue;
        }
        looked.push_back(folder);
        const fs::path found = fs::canonical(base / path, error);
        if (error) {
            continue;
        }
        if (std::mismatch(base.begin(), base.end(), found.begin(), found.end()).first != base.end()) {
            throw protocol::UserError(
                fmt::format("{}: expected a program in {}, got a link to {}", name, folder, found.string()));
        }
        if (!fs::is_regular_file(found, error)) {
            throw protocol::UserError(fmt::format("{}: expected a program, got something else", name));
        }
        if (access(found.c_str(), X_OK) != 0) {
            throw protocol::UserError(
                fmt::format("{}: expected a program, got a file that cannot be executed: chmod +x it", name));
        }
        return found.string();
    }
    throw protocol::UserError(fmt::format("{}: no such program in {}", name, fmt::join(looked, " or ")));
}

std::string notOneLine(std::string_view text)
{
    return protocol::printable(text) == text
               ? ""
               : fmt::format("expected one line of text, got {}", inQuotes(text.substr(0, 200)));
}

}  // namespace station::instrument
