#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "programs/Cli.h"
#include "programs/station/InputFile.h"
#include "programs/station/LineOptions.h"
#include "programs/station/Station.h"
#include "programs/station/Tool.h"
#include "protocol/catalogue/Catalogue.h"
#include "station/Connection.h"
#include "station/identity/CsvSource.h"
#include "station/identity/Journal.h"
#include "station/identity/Provision.h"
#include "station/identity/Record.h"
#include "station/identity/UnitIdentity.h"

namespace programs::station_tool {

namespace {

using nlohmann::ordered_json;
using protocol::printable;
using station::Connection;
namespace catalogue = protocol::catalogue;
namespace identity = station::identity;
using identity::Done;
using identity::Record;
using identity::Result;
using identity::Stored;
using identity::Wanted;

/// How long a device that has gone is waited for when the user wants an end.
constexpr auto kSessionRestoreWait = std::chrono::seconds(1);

struct IdentityOptions {
    bool showSecrets = false;
    station::PortSpec port;
    // A record is on the disk when the next frame is answered, and a flash may take its time.
    double timeoutSeconds = 5;
    double reconnectSeconds = 10;
    std::vector<std::string> records;
    std::vector<std::string> set;
    std::vector<std::string> ranges;
    std::vector<std::string> macBlocks;
    std::string csv;
    std::string serial;
    std::string unit;
    std::string journal;
    bool overwrite = false;
    bool dryRun = false;
    bool again = false;
    bool allowAny = false;
    std::string reissue;
};

/// @returns where the journal is kept when nothing else was said; empty for no such place.
std::string defaultJournal()
{
    const std::string folder = stateFolder();
    return folder.empty() ? "" : folder + "/identity.jsonl";
}

ordered_json toJson(const Stored& stored, const Record& record)
{
    if (!record.presenceOnly) {
        return stored.present ? ordered_json(stored.value) : ordered_json(nullptr);
    }
    return {{"present", stored.present},
            {"controller", stored.value.empty() ? ordered_json(nullptr) : ordered_json(stored.value)}};
}

/// Masks the value of a secret record; the journal has it as it is.
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

/// @returns the result for readers of JSON, secrets masked.
ordered_json toJson(const Done& shown)
{
    const Done done = masked(shown);
    ordered_json object{{"type", "record"},
                        {"record", done.record->name},
                        {"old", toJson(done.before, *done.record)},
                        {"new", done.wanted},
                        {"read", toJson(done.after, *done.record)},
                        {"result", name(done.result)}};
    if (catalogue::hasSecret(*done.record->write)) {
        object["masked"] = true;
    }
    return object;
}

/// A conversation with the unit on the port, in auto-test mode.
class Session
{
public:
    Session(const IdentityOptions& options, Tool& tool)
        : tool_(tool)
        , connection_(options.port, {.reconnect = fromSeconds(options.reconnectSeconds), .interrupt = &tool.interrupt})
        , unit_(connection_, catalogue::groups(), fromSeconds(options.timeoutSeconds))
    {
    }

    /// Runs `work(unit)` in auto-test mode, and gives the unit the mode back that it had, whatever happens.
    template <class Work>
    int run(Work work)
    {
        int status = kFailed;
        try {
            unit_.enterTestMode();
            status = work(unit_);
        } catch (const identity::NoAnswer& error) {
            complain(kProgram, error.what());
            status = kNoAnswer;
            failure_ = error.what();
        } catch (...) {
            restore();
            throw;
        }
        const bool finished = restore();
        return finished || status != kPassed ? status : kInterrupted;
    }

private:
    /// @returns whether it came to its end without the user's wish for another one.
    bool restore()
    {
        // Ctrl-C ends the work, not the cleaning up behind it, for which a device that has gone is not waited for long.
        const bool interrupted = tool_.interrupt.requested();
        tool_.interrupt.clear();
        if (interrupted) {
            connection_.waitAtMost(kSessionRestoreWait);
        }
        bool finished = true;
        try {
            unit_.restoreMode();
        } catch (const std::exception& error) {
            finished = dynamic_cast<const station::Interrupted*>(&error) == nullptr;
            if (error.what() != failure_) {
                complain(kProgram, std::string("auto-test mode may be left on: ") + error.what());
            }
        }
        if (interrupted) {
            tool_.interrupt.request();
        }
        return finished;
    }

    Tool& tool_;
    Connection connection_;
    identity::UnitIdentity unit_;
    std::string failure_;
};

int readIdentity(const IdentityOptions& options, Tool& tool)
{
    const auto all = identity::records(catalogue::groups());
    std::vector<const Record*> chosen;
    try {
        for (const std::string& name : options.records) {
            chosen.push_back(&require(all, name));
        }
    } catch (const std::invalid_argument& error) {
        throw WrongUse(error.what());
    }
    if (chosen.empty()) {
        for (const Record& record : all) {
            chosen.push_back(&record);
        }
    }
    return Session(options, tool).run([&](identity::UnitIdentity& unit) {
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
                text += stored.value.empty() ? "" : ", the controller runs " + stored.value;
            }
            std::printf("%-18s %s\n", std::string(record->name).c_str(), printable(text).c_str());
            std::fflush(stdout);
        }
        if (tool.json) {
            ordered_json told{{"records", std::move(object)}};
            if (anyMasked) {
                told["masked"] = true;
            }
            printJson(std::move(told));
        }
        return kPassed;
    });
}

/// Where the values come from, and which unit they are for.
class Source
{
public:
    Source(const IdentityOptions& options, Tool& tool)
        : options_(options), tool_(tool), rules_(tool.station->config().unit), records_(tool.station->records())
    {
        takeOptions();
        if (options.csv.empty() && set_.empty() && ranges_.empty()) {
            throw WrongUse(
                "nothing to do: values were expected, from --range, --mac-block, --set RECORD=VALUE or --csv FILE");
        }
        if (options.csv.empty() && !options.serial.empty()) {
            throw WrongUse("--serial chooses a row of --csv FILE, which was not given");
        }
        if (options.csv == "-") {
            throw WrongUse(
                "--csv: a file was expected, not standard input: other stations must find the ledger beside it");
        }
        if (!options.csv.empty()) {
            try {
                table_ = identity::readCsv(readInput(options.csv, tool.interrupt), options.csv, records_);
            } catch (const identity::CsvError& error) {
                throw WrongUse(error.what());
            }
            for (const identity::CsvRow& row : table_->rows) {
                for (const auto& [name, value] : row.values) {
                    check(require(records_, name), value, options.csv + ":" + std::to_string(row.line) + ": ");
                }
            }
        }
    }

    /// @returns what the unit on the line is to have; no other unit gets that from now on.
    std::vector<Wanted> reserve(identity::UnitIdentity& unit)
    {
        identity::GuardTerms& terms = tool_.station->terms;
        terms = {options_.unit, options_.reissue, options_.again, options_.allowAny, {}};
        if (!table_ && ranges_.empty()) {
            return reserveSet(unit);
        }
        const identity::UnitOnLine line{options_.unit, heldBy(unit), options_.again, options_.reissue};
        if (line.label.empty() && !hasSerial(line)) {
            throw WrongUse(
                "the unit has no serial number yet: name it with --unit (what is printed on it, for one), so that a "
                "second try finds the same values");
        }
        openRegistry();
        // A unit that will be refused must not use values up.
        const auto planned = grant(line, true);
        const auto wanted = wantedOf(planned.row, planned.again);
        unit_ = planned.name;
        if (options_.dryRun || any(preview(unit, wanted), Result::kRefused)) {
            return wanted;
        }
        const auto granted = grant(line, false);
        unit_ = granted.name;
        terms.unit = granted.unit;
        return wantedOf(granted.row, granted.again);
    }

    /// @returns what the unit on the line should have.
    std::vector<Wanted> find(identity::UnitIdentity& unit)
    {
        if (!table_) {
            return set_;
        }
        std::string serial = options_.serial;
        if (serial.empty() && !options_.unit.empty()) {
            unit_ = options_.unit;
            registry_ = tool_.station->openRegistry(identity::Registry::Access::kLook);
            const auto row = registry_->rowOf(*table_, unit_);
            if (!row) {
                throw identity::NotGiven("unit " + unit_ + " has not been given a row of " + table_->path);
            }
            return wantedOf(*row, true);
        }
        if (serial.empty()) {
            serial = unit.read(require(records_, "factory-serial")).value;
        }
        if (serial.empty()) {
            throw identity::NotGiven(
                "the unit has no factory serial by which to find its row: give --serial or --unit");
        }
        for (const identity::CsvRow& row : table_->rows) {
            const auto found = row.values.find("factory-serial");
            if (found != row.values.end() && found->second == serial) {
                return wantedOf(row, true);
            }
        }
        throw identity::NotGiven(table_->path + ": no row has factory serial " + serial);
    }

    /// @returns what the user waived for a value, in words; empty for nothing.
    std::string waived(const Done& done) const
    {
        if (done.result == Result::kUnchanged || done.result == Result::kRefused || done.result == Result::kSkipped) {
            return {};
        }
        std::string text = options_.allowAny ? identity::reservedAddress(*done.record, done.wanted) : "";
        if (!text.empty()) {
            text = "--allow-any: " + text;
        }
        if (!options_.reissue.empty() && done.record->unique) {
            text += (text.empty() ? "" : "; ") + ("--reissue: " + options_.reissue);
        }
        return text;
    }

    const std::string& unit() const { return unit_; }

    /// @returns the unit as the registry calls it, by its serial number for one; empty when that was not asked.
    const std::string& unitInJournal() const { return unit_.empty() ? known_ : unit_; }

private:
    static std::optional<std::string> optional(const std::string& text)
    {
        return text.empty() ? std::nullopt : std::optional(text);
    }

    void takeOptions()
    {
        const char* option = "--set: ";
        try {
            for (const std::string& text : options_.set) {
                addSet(text);
            }
            option = "--range: ";
            for (const std::string& text : options_.ranges) {
                addRange(identity::parseRange(records_, text));
            }
            option = "--mac-block: ";
            for (const std::string& text : options_.macBlocks) {
                addRange(identity::parseMacBlock(records_, text));
            }
        } catch (const std::invalid_argument& error) {
            throw WrongUse(option + std::string(error.what()));
        }
    }

    void refuseSecond(const Record& record) const
    {
        const bool ranged = std::ranges::find(ranges_, &record, &identity::ValueRange::record) != ranges_.end();
        if (ranged || std::ranges::find(set_, &record, &Wanted::record) != set_.end()) {
            throw std::invalid_argument("two values for " + std::string(record.name));
        }
    }

    void addSet(const std::string& text)
    {
        const auto equals = text.find('=');
        if (equals == std::string::npos) {
            throw std::invalid_argument("'" + text + "' is no RECORD=VALUE, as in factory-serial=SN123");
        }
        const Record& record = require(records_, text.substr(0, equals));
        refuseSecond(record);
        std::string value;
        try {
            value = normalise(record, text.substr(equals + 1));
        } catch (const std::invalid_argument& error) {
            throw std::invalid_argument(std::string(record.name) + ": " + error.what());
        }
        check(record, value, "--set: ");
        set_.push_back({&record, std::move(value), false});
    }

    void addRange(identity::ValueRange range)
    {
        refuseSecond(*range.record);
        // The first address of a block may be the one of all zeros, which is passed over.
        const auto first = range.first + (range.record->isAddress() && range.first < range.last ? 1 : 0);
        for (const auto number : {first, range.last}) {
            check(*range.record, range.value(number), "");
        }
        ranges_.push_back(std::move(range));
    }

    void check(const Record& record, const std::string& value, const std::string& where) const
    {
        std::string wrong = rules_.objection(record, value);
        if (wrong.empty() && !options_.allowAny) {
            wrong = identity::reservedAddress(record, value);
        }
        if (!wrong.empty()) {
            throw WrongUse(where + wrong);
        }
    }

    bool hasSerial(const identity::UnitOnLine& line) const
    {
        return std::ranges::any_of(line.held, [&](const auto& entry) {
            const Record& record = require(records_, entry.first);
            return !record.isAddress() && !rules_.isPlaceholder(record, entry.second);
        });
    }

    identity::Registry::Grant grant(const identity::UnitOnLine& line, bool dryRun)
    {
        if (table_) {
            return registry_->reserve(*table_, line, optional(options_.serial), dryRun);
        }
        identity::Values values;
        for (const Wanted& wanted : set_) {
            values.emplace(wanted.record->name, wanted.value);
        }
        return registry_->claim(values, ranges_, line, dryRun);
    }

    /// Reserves those of the values that were told which would be written.
    std::vector<Wanted> reserveSet(identity::UnitIdentity& unit)
    {
        unit_ = options_.unit;
        const auto all = preview(unit, set_);
        identity::Values values;
        for (const Done& done : all) {
            if (done.result == Result::kWouldWrite && done.record->unique) {
                values.emplace(done.record->name, done.wanted);
            }
        }
        if (!values.empty() && !any(all, Result::kRefused)) {
            openRegistry();
            const identity::UnitOnLine line{options_.unit, heldBy(unit), options_.again, options_.reissue};
            const auto granted = registry_->claim(values, {}, line, options_.dryRun);
            tool_.station->terms.unit = granted.unit;
            known_ = granted.name;
        }
        return set_;
    }

    void openRegistry()
    {
        using Access = identity::Registry::Access;
        registry_ = tool_.station->openRegistry(options_.dryRun ? Access::kLook : Access::kGive);
    }

    std::vector<Done> preview(identity::UnitIdentity& unit, const std::vector<Wanted>& wanted) const
    {
        return identity::write(unit, wanted, {options_.overwrite, true}, [](const Done&) {});
    }

    static bool any(const std::vector<Done>& all, Result result)
    {
        return std::ranges::find(all, result, &Done::result) != all.end();
    }

    /// @returns what tells the unit from others.
    identity::Values heldBy(identity::UnitIdentity& unit) const
    {
        identity::Values held;
        for (const Record& record : records_) {
            if (!record.unique || record.presenceOnly) {
                continue;
            }
            if (Stored stored = unit.read(record); stored.present && !stored.value.empty()) {
                held.emplace(record.name, std::move(stored.value));
            }
        }
        return held;
    }

    std::vector<Wanted> wantedOf(const identity::CsvRow& row, bool own) const
    {
        std::vector<Wanted> all;
        for (const Record& record : records_) {
            const auto found = row.values.find(record.name);
            if (found != row.values.end()) {
                all.push_back({&record, found->second, own});
            }
        }
        return all;
    }

    const IdentityOptions& options_;
    Tool& tool_;
    const identity::UnitRules& rules_;
    const std::vector<Record>& records_;
    std::vector<Wanted> set_;
    std::vector<identity::ValueRange> ranges_;
    std::optional<identity::CsvTable> table_;
    std::unique_ptr<identity::Registry> registry_;
    std::string unit_;
    std::string known_;
};

int statusOf(const std::vector<Done>& all)
{
    const auto any = [&](std::initializer_list<Result> results) {
        return std::ranges::any_of(
            all, [&](const Done& done) { return std::ranges::find(results, done.result) != results.end(); });
    };
    if (any({Result::kDiffers, Result::kMissing})) {
        return kReadBackDiffers;
    }
    return any({Result::kRefused, Result::kSkipped}) ? kFailed : kPassed;
}

void print(const Done& done, bool json)
{
    if (json) {
        printJson(toJson(done));
    } else {
        std::puts(printable(describe(masked(done))).c_str());
    }
    std::fflush(stdout);
}

/// Repeats what went wrong as a diagnostic.
void complainAbout(const std::vector<Done>& all, bool json)
{
    // Who sees both streams has seen it.
    if (!json && isatty(STDOUT_FILENO) == 1 && isatty(STDERR_FILENO) == 1) {
        return;
    }
    for (const Done& done : all) {
        if (done.result == Result::kRefused || done.result == Result::kDiffers || done.result == Result::kMissing) {
            complain(kProgram, describe(masked(done)));
            return;
        }
    }
}

/// Runs `work(unit)`; what keeps a value from being given away is told in one line.
template <class Work>
int runWithValues(const IdentityOptions& options, Tool& tool, Work work)
{
    return Session(options, tool).run([&](identity::UnitIdentity& unit) -> int {
        try {
            return work(unit);
        } catch (const identity::NotGiven& error) {
            complain(kProgram, error.what());
        } catch (const identity::RegistryError& error) {
            complain(kProgram, error.what());
        }
        return kFailed;
    });
}

int writeIdentity(const IdentityOptions& options, Tool& tool)
{
    Source source(options, tool);
    const std::string path = options.journal.empty() ? defaultJournal() : options.journal;
    if (path.empty()) {
        throw WrongUse("no place for the journal: give --journal FILE, or set HOME");
    }
    // Before anything is done that it could not tell of.
    std::optional<identity::Journal> journal;
    if (!options.dryRun) {
        try {
            journal.emplace(path);
        } catch (const std::system_error& error) {
            throw WrongUse(error.what());
        }
    }
    const std::string& port = options.port.path;
    return runWithValues(options, tool, [&](identity::UnitIdentity& unit) -> int {
        std::string unrecorded;
        const auto record = [&](auto note) {
            try {
                if (journal) {
                    note(*journal);
                }
            } catch (const std::system_error& error) {
                unrecorded = error.what();
            }
        };
        std::vector<Done> all;
        try {
            const auto wanted = source.reserve(unit);
            if (!source.unit().empty() && !tool.json) {
                std::printf("unit %s\n", printable(source.unit()).c_str());
            }
            all = identity::write(unit, wanted, {options.overwrite, options.dryRun}, [&](const Done& done) {
                // The unit has the value: a journal that cannot be written does not leave it half done.
                record(
                    [&](identity::Journal& to) { to.note(port, source.unitInJournal(), done, source.waived(done)); });
                print(done, tool.json);
            });
        } catch (const std::exception& error) {
            record([&](identity::Journal& to) { to.noteEnd(port, source.unitInJournal(), error.what()); });
            throw;
        }
        const int status = statusOf(all);
        complainAbout(all, tool.json);
        if (!unrecorded.empty()) {
            complain(kProgram, unrecorded);
        }
        return status == kPassed && !unrecorded.empty() ? kFailed : status;
    });
}

int verifyIdentity(const IdentityOptions& options, Tool& tool)
{
    Source source(options, tool);
    return runWithValues(options, tool, [&](identity::UnitIdentity& unit) -> int {
        const auto all = identity::verify(unit, source.find(unit), [&](const Done& done) { print(done, tool.json); });
        complainAbout(all, tool.json);
        return statusOf(all);
    });
}

void addSources(CLI::App& verb, IdentityOptions& options)
{
    verb.add_option("--set", options.set, "RECORD=VALUE; may be given several times")
        ->type_name("RECORD=VALUE")
        ->allow_extra_args(false);
    verb.add_option("--csv", options.csv,
                    "Take the values from a row of this file: its first line names records, "
                    "factory-serial,carplay-mac,…")
        ->type_name("FILE")
        ->excludes("--set");
    verb.add_option("--serial", options.serial, "Take the row with this factory serial")->type_name("SERIAL");
    verb.add_option("--unit", options.unit, "What the unit is called before it has a serial number")->type_name("ID");
}

}  // namespace

void addIdentity(Tool& tool)
{
    CLI::App* noun = tool.app.add_subcommand("identity",
                                             "Reads, writes and verifies the records that tell one unit from another\n"
                                             "Auto-test mode is switched on for it, and back to what it was.");
    noun->require_subcommand(1);

    const auto reading = std::make_shared<IdentityOptions>();
    CLI::App* verb = noun->add_subcommand("read",
                                          "Prints a unit's identity records\n"
                                          "All of them, or those named. Of the Bluetooth address a unit only tells "
                                          "whether one was written, and the address that its controller runs.");
    verb->add_option("RECORD", reading->records, "Which to read: factory-serial, carplay-mac, …");
    verb->add_flag("--show-secrets", reading->showSecrets, "Print the password number instead of a '*' per character");
    addPort(*verb, reading->port);
    addTimeout(*verb, reading->timeoutSeconds);
    addReconnect(*verb, reading->reconnectSeconds);
    verb->footer(
        "Examples:\n"
        "  engineering-station identity read\n"
        "  engineering-station identity read factory-serial --json");
    verb->callback([&tool, reading] { tool.action = [&tool, reading] { return readIdentity(*reading, tool); }; });

    const auto writing = std::make_shared<IdentityOptions>();
    verb = noun->add_subcommand(
        "write",
        "Writes identity records and reads them back\n"
        "All are read first: when the unit has another value in one of them, nothing is written, unless --overwrite is "
        "given. Each is read back and compared byte by byte; exit status 12 when it differs. Of the Bluetooth address "
        "a unit only tells that there is one: verify it when the unit has started again.\n"
        "\n"
        "With --csv the unit gets a row of the file: its own when it has one, else that of --serial, else the next "
        "free one. --range and --mac-block give it the next free value of a range. The station's registry knows which "
        "value went to which unit, on the disk before anything is written: no factory serial, head-unit serial or "
        "address is ever given to a second unit, whatever happens; a second try gets the same values. A unit is known "
        "by the serial number that it has; before it has one, by --unit. Values that were sent to a unit are given "
        "again "
        "only to one that holds one of them, or with --again, or to the board that replaces it with --reissue.\n"
        "\n"
        "What was done is added to a journal, one JSON object a line.");
    addSources(*verb, *writing);
    verb->add_flag("--overwrite", writing->overwrite, "Replace other values that the unit has");
    verb->add_flag("--again", writing->again,
                   "The unit was given its values before and its memory was erased since: give it the same ones again");
    verb->add_option(
            "--reissue", writing->reissue,
            "Give the values of another unit to the board that replaces it; why is kept in registry and journal")
        ->type_name("REASON")
        ->check([](const std::string& reason) { return std::string(reason.empty() ? "expected a reason" : ""); }, "");
    verb->add_option("--range", writing->ranges, "Take the next free value: factory-serial=SN{000100..000999}")
        ->type_name("RECORD=RANGE")
        ->allow_extra_args(false)
        ->excludes("--csv");
    verb->add_option("--mac-block", writing->macBlocks,
                     "Take the next free address of a block: carplay-mac=001A7D000000/24")
        ->type_name("RECORD=ADDRESS/BITS")
        ->allow_extra_args(false)
        ->excludes("--csv");
    verb->add_flag("--allow-any", writing->allowAny,
                   "Write an address that no device has, too: multicast, all zero, all F; the journal says so");
    verb->add_flag("--dry-run", writing->dryRun, "Only say what would be done; no value is given away");
    verb->add_option("--journal", writing->journal, "Where to keep the journal")
        ->type_name("FILE")
        ->default_str("~/.local/state/engineering-station/identity.jsonl");
    addPort(*verb, writing->port);
    addTimeout(*verb, writing->timeoutSeconds);
    addReconnect(*verb, writing->reconnectSeconds);
    verb->footer(
        "Examples:\n"
        "  engineering-station identity write --set factory-serial=SN123 --set carplay-mac=00:11:22:33:44:55\n"
        "  engineering-station identity write --csv units.csv --unit PCB-4711\n"
        "  engineering-station identity write --csv units.csv --serial SN123 --dry-run\n"
        "  engineering-station identity write --range 'factory-serial=SN{000100..000999}' --unit PCB-4711");
    verb->callback([&tool, writing] { tool.action = [&tool, writing] { return writeIdentity(*writing, tool); }; });

    const auto verifying = std::make_shared<IdentityOptions>();
    verb = noun->add_subcommand(
        "verify",
        "Compares a unit's identity records with what they should be\n"
        "Byte by byte; exit status 12 when one differs or is missing. With --csv against the row of --serial, else the "
        "one that --unit was given, else the one of the factory serial that the unit has. Of the Bluetooth address, "
        "the one that the controller runs is compared: a written one runs when the unit has started again.");
    addSources(*verb, *verifying);
    addPort(*verb, verifying->port);
    addTimeout(*verb, verifying->timeoutSeconds);
    addReconnect(*verb, verifying->reconnectSeconds);
    verb->footer(
        "Examples:\n"
        "  engineering-station identity verify --set factory-serial=SN123\n"
        "  engineering-station identity verify --csv units.csv");
    verb->callback(
        [&tool, verifying] { tool.action = [&tool, verifying] { return verifyIdentity(*verifying, tool); }; });

    addIdentityRegistry(tool, *noun);
}

}  // namespace programs::station_tool
