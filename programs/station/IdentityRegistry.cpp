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
        complain(kProgram, protocol::inQuotes(value) + " is not in the registry");
    }
    return found ? kPassed : kFailed;
}

int importFile(Tool& tool, const std::string& path)
{
    if (path == "-") {
        throw protocol::UserError("expected a file, got standard input: the import writes into a ledger");
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
        "Lists and fills the registry of the values that were given to units\n"
        "The registry is the file of [paths] registry in the station's file; by default "
        "$XDG_STATE_HOME/engineering-station/registry.sqlite. A value in it is never given to a second unit, and never "
        "removed.");
    noun->require_subcommand(1);

    CLI::App* verb = noun->add_subcommand("list", "Lists all values: name space, value, state, time, unit");
    verb->footer("  engineering-station identity registry list --json");
    verb->callback([&tool] { tool.action = [&tool] { return list(tool); }; });

    const auto options = std::make_shared<IdentityRegistryOptions>();
    verb = noun->add_subcommand("who", "Prints which unit has a value; exit status 1 if no unit has it");
    verb->add_option("VALUE", options->value, "A serial number, or an address in any spelling")->required();
    verb->footer("  engineering-station identity registry who 00:1A:7D:00:00:01");
    verb->callback([&tool, options] { tool.action = [&tool, options] { return who(tool, options->value); }; });

    verb = noun->add_subcommand("import",
                                "Adds values that units have\n"
                                "From the ledger beside a CSV file (FILE.csv.ledger), which names this registry from "
                                "then on, or from a CSV file whose rows all belong to units.");
    verb->add_option("FILE", options->file, "The ledger, or the CSV file")->required()->type_name("FILE");
    verb->footer("  engineering-station identity registry import units.csv.ledger");
    verb->callback([&tool, options] { tool.action = [&tool, options] { return importFile(tool, options->file); }; });

    verb = noun->add_subcommand("block", "Makes sure that a value is never given");
    verb->add_option("VALUE", options->value, "A serial number, or an address")->required();
    verb->add_option("--reason", options->reason, "Why")->type_name("REASON");
    verb->footer("  engineering-station identity registry block 001A7D0000FF --reason 'used in the laboratory'");
    verb->callback([&tool, options] {
        tool.action = [&tool, options] {
            tool.station->openRegistry()->block(options->value, options->reason);
            return kPassed;
        };
    });

    verb = noun->add_subcommand("adopt",
                                "Lets a copied or restored registry give values\n"
                                "First import or block the values that the other registry gave after the copy was "
                                "made: this registry does not know them.");
    verb->footer("  engineering-station identity registry adopt");
    verb->callback([&tool] {
        tool.action = [&tool] {
            tool.station->openRegistry()->adopt();
            return kPassed;
        };
    });
}

}  // namespace programs::station_tool
