#include <fmt/format.h>

#include <cstdio>
#include <memory>
#include <string>

#include "programs/Cli.h"
#include "programs/station/Station.h"
#include "programs/station/Tool.h"
#include "protocol/Text.h"

namespace programs::station_tool {

namespace {

namespace identity = station::identity;
using identity::Registry;
using protocol::printable;

struct IdentityRegistryOptions {
    std::string value;
    std::string file;
    std::string reason;
};

void print(const Registry::Entry& entry, bool json)
{
    if (json) {
        nlohmann::ordered_json object{{"type", "value"},        {"space", entry.space},  {"value", entry.value},
                                      {"record", entry.record}, {"unit", entry.unit},    {"state", name(entry.state)},
                                      {"time", entry.time},     {"reason", entry.reason}};
        for (const auto& one : entry.events) {
            object["events"].push_back(
                {{"time", one.time}, {"event", one.event}, {"unit", one.unit}, {"reason", one.reason}});
        }
        printJson(std::move(object));
        return;
    }
    const std::string owner = entry.unit.empty() ? entry.reason : "unit " + entry.unit + ", " + entry.record;
    std::puts(fmt::format("{:<14}  {:<20}  {:<8}  {}  {}", entry.space, printable(entry.value), name(entry.state),
                          entry.time, printable(owner))
                  .c_str());
    for (const auto& one : entry.events) {
        std::string text = one.unit.empty() ? "" : "unit " + one.unit;
        text += (text.empty() || one.reason.empty() ? "" : ", ") + one.reason;
        std::puts(fmt::format("  {}  {:<11}  {}", one.time, one.event, printable(text)).c_str());
    }
}

/// Prints what was done.
void tell(const Tool& tool, nlohmann::ordered_json object, const std::string& line)
{
    tool.json ? printJson(std::move(object)) : static_cast<void>(std::puts(printable(line).c_str()));
}

int list(Tool& tool)
{
    const auto registry = tool.station->openRegistry(Registry::Access::kLook);
    if (tool.json) {
        printJson({{"type", "registry"}, {"path", registry->path()}, {"uuid", registry->uuid()}});
    }
    registry->list([&](const Registry::Entry& entry) { print(entry, tool.json); });
    return kPassed;
}

int who(Tool& tool, const std::string& value)
{
    bool found = false;
    tool.station->openRegistry(Registry::Access::kLook)
        ->list(
            [&](const Registry::Entry& entry) {
                found = true;
                print(entry, tool.json);
            },
            value);
    if (!found) {
        complain(kProgram, fmt::format("expected a value in the registry, got {}", protocol::inQuotes(value)));
    }
    return found ? kPassed : kFailed;
}

int importFile(Tool& tool, const std::string& path)
{
    if (path == "-") {
        throw protocol::UserError("expected a file, got standard input: 'import' writes into a ledger");
    }
    const std::string text = readInput(path, tool.interrupt);
    const auto registry = tool.station->openRegistry();
    std::size_t fresh = 0;
    if (text.starts_with("{") || path.ends_with(".ledger")) {
        fresh = registry->importLedger(path);
    } else {
        fresh = registry->importTable(identity::readCsv(text, path, tool.station->records()));
    }
    if (const auto& twice = registry->givenTwice(); !twice.empty()) {
        const std::string more = twice.size() == 1 ? "" : fmt::format(" (and {} more)", twice.size() - 1);
        complain(kProgram, fmt::format("{}: gives another unit {}{}", path, twice.front(), more));
    }
    if (tool.json) {
        printJson({{"file", path}, {"values", fresh}, {"given_twice", registry->givenTwice()}});
    } else {
        std::printf("%s: %s new in the registry\n", printable(path).c_str(), protocol::plural(fresh, "value").c_str());
    }
    return kPassed;
}

}  // namespace

void addIdentityRegistry(Tool& tool, CLI::App& parent)
{
    CLI::App* const noun = parent.add_subcommand(
        "registry",
        "List and fill the registry of the values that units were given\n"
        "The registry is the file of [paths] registry in station.toml; by default "
        "$XDG_STATE_HOME/engineering-station/registry.sqlite. No second unit gets a value in it, and no value leaves "
        "it.");
    noun->require_subcommand(1);

    CLI::App* verb = noun->add_subcommand("list", "List all values: name space, value, state, time, unit");
    verb->footer("Examples:\n  engineering-station identity registry list --json");
    verb->callback([&tool] { tool.action = [&tool] { return list(tool); }; });

    const auto options = std::make_shared<IdentityRegistryOptions>();
    verb = noun->add_subcommand("who", "Print which unit has a value, and its history");
    verb->add_option("VALUE", options->value, "Serial number, or address in any spelling")
        ->check(checkNotEmpty, "")
        ->required();
    verb->footer("Examples:\n  engineering-station identity registry who 00:1A:7D:00:00:01");
    verb->callback([&tool, options] { tool.action = [&tool, options] { return who(tool, options->value); }; });

    verb = noun->add_subcommand("import",
                                "Add values that units have\n"
                                "They come from the ledger beside a CSV file (FILE.csv.ledger), which names this "
                                "registry from then on, or from a CSV file whose rows all belong to units.");
    verb->add_option("FILE", options->file, "Ledger or CSV file")->required()->type_name("FILE");
    verb->footer("Examples:\n  engineering-station identity registry import units.csv.ledger");
    verb->callback([&tool, options] { tool.action = [&tool, options] { return importFile(tool, options->file); }; });

    verb = noun->add_subcommand("block", "Block a value, so that no unit gets it");
    verb->add_option("VALUE", options->value, "Serial number or address")->check(checkNotEmpty, "")->required();
    verb->add_option("--reason", options->reason, "Reason, for the registry")->type_name("REASON");
    verb->footer(
        "Examples:\n  engineering-station identity registry block 001A7D0000FF --reason 'used in the laboratory'");
    verb->callback([&tool, options] {
        tool.action = [&tool, options] {
            tool.station->openRegistry()->block(options->value, options->reason);
            tell(tool, {{"value", options->value}, {"state", "blocked"}},
                 options->value + ": blocked, no unit gets it");
            return kPassed;
        };
    });

    verb = noun->add_subcommand("adopt",
                                "Let a copied or restored registry give values\n"
                                "First import or block the values that the other registry gave after the copy was "
                                "made: this registry does not know them.");
    verb->footer("Examples:\n  engineering-station identity registry adopt");
    verb->callback([&tool] {
        tool.action = [&tool] {
            const auto registry = tool.station->openRegistry();
            registry->adopt();
            tell(tool, {{"path", registry->path()}, {"uuid", registry->uuid()}},
                 fmt::format("{}: adopted, gives values as registry {}", registry->path(), registry->uuid()));
            return kPassed;
        };
    });
}

}  // namespace programs::station_tool
