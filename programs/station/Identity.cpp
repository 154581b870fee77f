#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "programs/Cli.h"
#include "programs/station/Station.h"
#include "programs/station/Tool.h"
#include "protocol/Text.h"
#include "protocol/catalogue/Catalogue.h"
#include "station/identity/UnitSession.h"
#include "station/identity/ValueSource.h"

namespace programs::station_tool {

namespace {

using nlohmann::ordered_json;
using protocol::printable;
namespace catalogue = protocol::catalogue;
namespace identity = station::identity;
using identity::Done;
using identity::Record;
using identity::Result;
using identity::Stored;
using identity::UnitIdentity;

struct IdentityOptions {
    bool showSecrets = false;
    station::PortSpec port;
    // The unit answers once the record before is on its disk, and a flash may be slow.
    double timeoutSeconds = 5;
    double reconnectSeconds = 10;
    std::vector<std::string> records;
    identity::ValueOptions values;
    std::string journal;
};

ordered_json toJson(const Stored& stored, const Record& record)
{
    if (!record.presenceOnly) {
        return stored.present ? ordered_json(stored.value) : ordered_json(nullptr);
    }
    return {{"present", stored.present},
            {"controller", stored.value.empty() ? ordered_json(nullptr) : ordered_json(stored.value)}};
}

/// Masks the value of a secret record. The journal has it in clear text.
void mask(std::string& value, const Record& record)
{
    if (catalogue::hasSecret(*record.write)) {
        std::ranges::fill(value, catalogue::kMask);
    }
}

Done masked(Done done)
{
    for (std::string* value : {&done.before.value, &done.wanted, &done.after.value}) {
        mask(*value, *done.record);
    }
    return done;
}

void print(const Done& result, bool json)
{
    const Done done = masked(result);
    if (json) {
        ordered_json object{{"type", "record"},
                            {"record", done.record->name},
                            {"old", toJson(done.before, *done.record)},
                            {"new", done.wanted},
                            {"read", toJson(done.after, *done.record)},
                            {"result", name(done.result)}};
        if (catalogue::hasSecret(*done.record->write)) {
            object["masked"] = true;
        }
        printJson(std::move(object));
    } else {
        std::puts(printable(describe(done)).c_str());
    }
    std::fflush(stdout);
}

identity::UnitSession openSession(const IdentityOptions& options, Tool& tool)
{
    return {options.port,
            {.reconnect = fromSeconds(options.reconnectSeconds), .interrupt = &tool.interrupt},
            fromSeconds(options.timeoutSeconds),
            [](const std::string& warning) { complain(kProgram, warning); }};
}

int readIdentity(const IdentityOptions& options, Tool& tool)
{
    const auto all = identity::records(catalogue::groups());
    std::vector<const Record*> chosen;
    for (const std::string& name : options.records) {
        chosen.push_back(&require(all, name));
    }
    for (const Record& record : all) {
        if (options.records.empty()) {
            chosen.push_back(&record);
        }
    }
    return openSession(options, tool).run([&](UnitIdentity& unit) {
        ordered_json object = ordered_json::object();
        bool anyMasked = false;
        for (const Record* record : chosen) {
            Stored stored = unit.read(*record);
            if (!options.showSecrets) {
                mask(stored.value, *record);
                anyMasked = anyMasked || catalogue::hasSecret(*record->write);
            }
            if (tool.json) {
                object[std::string(record->name)] = toJson(stored, *record);
                continue;
            }
            std::string text = stored.present ? stored.value : "(none)";
            if (record->presenceOnly) {
                text = stored.present ? "(written)" : "(none)";
                text += stored.value.empty() ? "" : ", the controller uses " + stored.value;
            }
            std::printf("%-18s %s\n", std::string(record->name).c_str(), printable(text).c_str());
            std::fflush(stdout);
        }
        if (tool.json) {
            ordered_json answer{{"records", std::move(object)}};
            if (anyMasked) {
                answer["masked"] = true;
            }
            printJson(std::move(answer));
        }
        return static_cast<int>(kPassed);
    });
}

identity::ValueSource sourceOf(const IdentityOptions& options, Tool& tool)
{
    const std::string& csv = options.values.csv;
    return {options.values,
            csv.empty() ? "" : readInput(csv, tool.interrupt),
            tool.station->records(),
            tool.station->config().unit,
            tool.station->terms,
            [&tool](identity::Registry::Access access) { return tool.station->openRegistry(access); }};
}

/// Repeats the first failure on standard error.
/// @returns the exit status.
int conclude(const std::vector<Done>& all, bool json)
{
    const auto isFailure = [](const Done& done) {
        return done.result == Result::kRefused || done.result == Result::kDiffers || done.result == Result::kMissing;
    };
    const auto failure = std::ranges::find_if(all, isFailure);
    if (failure == all.end()) {
        return kPassed;
    }
    // A user who sees both streams has seen it.
    if (json || !outputsAreOne()) {
        complain(kProgram, describe(masked(*failure)));
    }
    return failure->result == Result::kRefused ? kFailed : kReadBackDiffers;
}

int writeIdentity(const IdentityOptions& options, Tool& tool)
{
    auto source = sourceOf(options, tool);
    // Opened before anything is done that it could not record.
    std::optional<identity::Journal> journal;
    if (!options.values.dryRun) {
        journal.emplace(options.journal.empty() ? station::stateFolder() + "/identity.jsonl" : options.journal,
                        options.port.path);
    }
    int status = openSession(options, tool).run([&](UnitIdentity& unit) {
        const auto reserved = [&] {
            if (!source.unit().empty() && !tool.json) {
                std::printf("unit %s\n", printable(source.unit()).c_str());
            }
        };
        const auto all = source.write(
            unit, journal ? &*journal : nullptr, [&](const Done& done) { print(done, tool.json); }, reserved);
        return conclude(all, tool.json);
    });
    if (journal && !journal->trouble().empty()) {
        complain(kProgram, journal->trouble());
        status = status == kPassed ? static_cast<int>(kNotRecorded) : status;
    }
    return status;
}

int verifyIdentity(const IdentityOptions& options, Tool& tool)
{
    auto source = sourceOf(options, tool);
    return openSession(options, tool).run([&](UnitIdentity& unit) {
        return conclude(identity::verify(unit, source.find(unit), [&](const Done& done) { print(done, tool.json); }),
                        tool.json);
    });
}

/// Adds the options that `write` and `verify` share.
void addSources(CLI::App& verb, IdentityOptions& options)
{
    verb.add_option("--set", options.values.set, "Value of a record; may be given several times")
        ->type_name("RECORD=VALUE")
        ->allow_extra_args(false);
    verb.add_option("--csv", options.values.csv,
                    "Take the values from a row of this file; its first line names the records, as in "
                    "factory-serial,carplay-mac")
        ->type_name("FILE")
        ->excludes("--set")
        // Other stations have to find the ledger beside it.
        ->check([](const std::string& path) { return path == "-" ? "expected a file, got standard input" : ""; }, "");
    verb.add_option("--serial", options.values.serial, "Take the row of this factory serial")->type_name("SERIAL");
    verb.add_option("--unit", options.values.unit, "Label of the unit, its name before it has a serial number")
        ->type_name("ID");
}

void addLine(CLI::App& verb, IdentityOptions& options)
{
    addPort(verb, options.port);
    addTimeout(verb, options.timeoutSeconds);
    addReconnect(verb, options.reconnectSeconds);
}

}  // namespace

void addIdentity(Tool& tool)
{
    CLI::App* noun = tool.app.add_subcommand("identity",
                                             "Read, write and verify a unit's identity records\n"
                                             "The verbs at a unit switch auto-test mode on and restore it at the end.");
    noun->require_subcommand(1);

    const auto reading = std::make_shared<IdentityOptions>();
    CLI::App* verb = noun->add_subcommand("read",
                                          "Print a unit's identity records\n"
                                          "The unit reports whether a Bluetooth address was written, and the address "
                                          "that its controller uses.");
    verb->add_option("RECORD", reading->records, "Records to print, such as factory-serial; by default all")
        ->type_name("RECORD");
    verb->add_flag("--show-secrets", reading->showSecrets, "Print the password number, not a '*' per character");
    addLine(*verb, *reading);
    verb->footer(
        "Examples:\n"
        "  engineering-station identity read\n"
        "  engineering-station identity read factory-serial --json");
    verb->callback([&tool, reading] { tool.action = [&tool, reading] { return readIdentity(*reading, tool); }; });

    const auto writing = std::make_shared<IdentityOptions>();
    verb = noun->add_subcommand(
        "write",
        "Write identity records and read them back\n"
        "Reads all records first: if one has another value, it writes nothing without --overwrite. It compares what it "
        "reads back byte by byte. Verify a Bluetooth address after the unit has started again.\n"
        "\n"
        "--csv takes the unit's own row, else the row of --serial, else the next free row. --range and --mac-block "
        "take "
        "the next free value. The registry keeps which unit got which value, so a second try gets the same values, and "
        "no two units get the same serial number or address. A unit is known by its serial number, and before it has "
        "one, by --unit.");
    addSources(*verb, *writing);
    identity::ValueOptions& values = writing->values;
    verb->add_flag("--overwrite", values.overwrite, "Replace values that the unit has");
    verb->add_flag("--again", values.again, "Give the unit its former values: its memory was erased");
    verb->add_option("--reissue", values.reissue,
                     "Give the board that replaces a unit the unit's values; registry and journal keep the reason")
        ->type_name("REASON")
        ->check(checkNotEmpty, "");
    verb->add_option("--range", values.ranges, "Take the next free value, such as of factory-serial=SN{000100..000999}")
        ->type_name("RECORD=RANGE")
        ->allow_extra_args(false)
        ->excludes("--csv");
    verb->add_option("--mac-block", values.macBlocks,
                     "Take the next free address of a block, such as carplay-mac=001A7D000000/24")
        ->type_name("RECORD=ADDRESS/BITS")
        ->allow_extra_args(false)
        ->excludes("--csv");
    verb->add_flag("--allow-any", values.allowAny,
                   "Also write addresses that no device may have: multicast, all zero, all F");
    verb->add_flag("--dry-run", values.dryRun, "Only print what would be written; reserve nothing");
    verb->add_option("--journal", writing->journal, "Append the results to this file, a JSON object per line")
        ->type_name("FILE")
        ->default_str("~/.local/state/engineering-station/identity.jsonl");
    addLine(*verb, *writing);
    verb->footer(
        "Examples:\n"
        "  engineering-station identity write --set factory-serial=SN123 --set carplay-mac=00:11:22:33:44:55\n"
        "  engineering-station identity write --csv units.csv --unit PCB-4711\n"
        "  engineering-station identity write --csv units.csv --serial SN123 --dry-run\n"
        "  engineering-station identity write --range 'factory-serial=SN{000100..000999}' --unit PCB-4711");
    verb->callback([&tool, writing] { tool.action = [&tool, writing] { return writeIdentity(*writing, tool); }; });

    const auto verifying = std::make_shared<IdentityOptions>();
    verifying->values.verifies = true;
    verb = noun->add_subcommand(
        "verify",
        "Compare a unit's identity records with the expected values\n"
        "Compares byte by byte. --csv takes the row of --serial, else the row that --unit was given, else the row of "
        "the "
        "unit's factory serial. The Bluetooth address is the one that the controller uses: a written address counts "
        "from the unit's next start.");
    addSources(*verb, *verifying);
    addLine(*verb, *verifying);
    verb->footer(
        "Examples:\n"
        "  engineering-station identity verify --set factory-serial=SN123\n"
        "  engineering-station identity verify --csv units.csv");
    verb->callback(
        [&tool, verifying] { tool.action = [&tool, verifying] { return verifyIdentity(*verifying, tool); }; });

    addIdentityRegistry(tool, *noun);
}

}  // namespace programs::station_tool
