#include "station/identity/ValueSource.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <utility>

#include "protocol/Errors.h"
#include "protocol/Text.h"

namespace station::identity {

namespace {

using protocol::UserError;

constexpr std::string_view kSerialOfRow = "factory-serial";

bool wouldBeRefused(const std::vector<Done>& preview)
{
    return std::ranges::find(preview, Result::kRefused, &Done::result) != preview.end();
}

}  // namespace

ValueSource::ValueSource(ValueOptions options, std::string_view csv, Records records, const UnitRules& rules,
                         GuardTerms& terms, OpenRegistry open)
    : options_(std::move(options)), records_(records), rules_(rules), terms_(terms), open_(std::move(open))
{
    takeOptions();
    if (options_.csv.empty()) {
        if (set_.empty() && ranges_.empty()) {
            throw UserError(options_.verifies
                                ? "expected values: --set RECORD=VALUE or --csv FILE"
                                : "expected values: --set RECORD=VALUE, --csv FILE, --range or --mac-block");
        }
        if (!options_.serial.empty()) {
            throw UserError("--serial: expected --csv FILE too, because it chooses a row");
        }
        return;
    }
    table_ = readCsv(csv, options_.csv, records_);
    for (const CsvRow& row : table_->rows) {
        for (const auto& [name, value] : row.values) {
            check(require(records_, name), value, fmt::format("{}:{}: ", options_.csv, row.line));
        }
    }
}

void ValueSource::takeOptions()
{
    const char* option = "--set";
    try {
        for (const std::string& text : options_.set) {
            addSet(text);
        }
        option = "--range";
        for (const std::string& text : options_.ranges) {
            addRange(parseRange(records_, text));
        }
        option = "--mac-block";
        for (const std::string& text : options_.macBlocks) {
            addRange(parseMacBlock(records_, text));
        }
    } catch (const UserError& error) {
        throw UserError(fmt::format("{}: {}", option, error.what()));
    }
}

void ValueSource::refuseSecond(const Record& record) const
{
    if (std::ranges::find(ranges_, &record, &ValueRange::record) != ranges_.end() ||
        std::ranges::find(set_, &record, &Wanted::record) != set_.end()) {
        throw UserError(fmt::format("{}: expected one value, got two", record.name));
    }
}

void ValueSource::addSet(std::string_view text)
{
    const auto equals = text.find('=');
    if (equals == std::string_view::npos) {
        throw UserError(
            fmt::format("expected RECORD=VALUE, as in factory-serial=SN123, got {}", protocol::inQuotes(text)));
    }
    const Record& record = require(records_, text.substr(0, equals));
    refuseSecond(record);
    std::string value = normalise(record, text.substr(equals + 1));
    check(record, value, "");
    set_.push_back({&record, std::move(value), false});
}

void ValueSource::addRange(ValueRange range)
{
    refuseSecond(*range.record);
    // The first address of a block may be 000000000000, which is never given.
    const auto first = range.first + (range.record->isAddress() && range.first < range.last ? 1 : 0);
    for (const auto number : {first, range.last}) {
        check(*range.record, range.value(number), "");
    }
    ranges_.push_back(std::move(range));
}

void ValueSource::check(const Record& record, const std::string& value, const std::string& where) const
{
    std::string wrong = rules_.objection(record, value);
    if (wrong.empty() && !options_.allowAny) {
        wrong = reservedAddress(record, value);
    }
    if (!wrong.empty()) {
        throw UserError(where + wrong);
    }
}

std::vector<Wanted> ValueSource::reserve(UnitIdentity& unit)
{
    terms_ = {{options_.unit, {}, options_.again, options_.reissue}, options_.allowAny, {}};
    if (!table_ && ranges_.empty()) {
        return reserveSet(unit);
    }
    const UnitOnLine line = lineOf(unit);
    if (line.label.empty() && !hasSerial(line.held)) {
        throw UserError(
            "the unit has no serial number yet: name it with --unit, such as by the number printed on it, so that a "
            "second try finds the same values");
    }
    openRegistry();
    // A unit that will be refused must not use up values.
    const auto planned = grant(line, true);
    auto wanted = wantedOf(planned.row, planned.again);
    unit_ = planned.name;
    if (options_.dryRun || wouldBeRefused(preview(unit, wanted))) {
        return wanted;
    }
    const auto granted = grant(line, false);
    unit_ = granted.name;
    terms_.unit = granted.unit;
    return wantedOf(granted.row, granted.again);
}

std::vector<Wanted> ValueSource::reserveSet(UnitIdentity& unit)
{
    unit_ = options_.unit;
    const auto all = preview(unit, set_);
    Values values;
    for (const Done& done : all) {
        if (done.result == Result::kWouldWrite && done.record->unique) {
            values.emplace(done.record->name, done.wanted);
        }
    }
    if (!values.empty() && !wouldBeRefused(all)) {
        openRegistry();
        const auto granted = registry_->claim(values, {}, lineOf(unit), options_.dryRun);
        terms_.unit = granted.unit;
        nameInRegistry_ = granted.name;
    }
    return set_;
}

std::vector<Wanted> ValueSource::find(UnitIdentity& unit)
{
    if (!table_) {
        return set_;
    }
    std::string serial = options_.serial;
    if (serial.empty() && !options_.unit.empty()) {
        unit_ = options_.unit;
        registry_ = open_(Registry::Access::kLook);
        const auto row = registry_->rowOf(*table_, unit_);
        if (!row) {
            throw NotGiven(fmt::format("{}: expected a row that unit {} was given, got none", table_->path, unit_));
        }
        return wantedOf(*row, true);
    }
    if (serial.empty()) {
        serial = unit.read(require(records_, kSerialOfRow)).value;
    }
    if (serial.empty()) {
        throw NotGiven("the unit has no factory serial to find its row by: add --serial or --unit");
    }
    return wantedOf(table_->rowOf(serial), true);
}

std::vector<Done> ValueSource::write(UnitIdentity& unit, Journal* journal, const Report& report,
                                     const std::function<void()>& reserved)
{
    const auto name = [this]() -> const std::string& { return unit_.empty() ? nameInRegistry_ : unit_; };
    try {
        const auto wanted = reserve(unit);
        reserved();
        return identity::write(unit, wanted, {options_.overwrite, options_.dryRun}, [&](const Done& done) {
            // The unit has the value: a journal that cannot be written must not leave the unit half done.
            if (journal != nullptr) {
                journal->note(name(), done, waived(done));
            }
            report(done);
        });
    } catch (const std::exception& error) {
        if (journal != nullptr) {
            journal->noteEnd(name(), error.what());
        }
        throw;
    }
}

/// @returns the rules that the user waived for a value; empty for none.
std::string ValueSource::waived(const Done& done) const
{
    if (done.result == Result::kUnchanged || done.result == Result::kRefused || done.result == Result::kSkipped) {
        return {};
    }
    std::vector<std::string> all;
    if (const std::string why = reservedAddress(*done.record, done.wanted); options_.allowAny && !why.empty()) {
        all.push_back("--allow-any: " + why);
    }
    if (!options_.reissue.empty() && done.record->unique) {
        all.push_back("--reissue: " + options_.reissue);
    }
    return fmt::format("{}", fmt::join(all, "; "));
}

bool ValueSource::hasSerial(const Values& held) const
{
    return std::ranges::any_of(held, [&](const auto& entry) {
        const Record& record = require(records_, entry.first);
        return !record.isAddress() && !rules_.isPlaceholder(record, entry.second);
    });
}

Registry::Grant ValueSource::grant(const UnitOnLine& line, bool dryRun)
{
    if (table_) {
        return registry_->reserve(*table_, line, options_.serial, dryRun);
    }
    Values values;
    for (const Wanted& wanted : set_) {
        values.emplace(wanted.record->name, wanted.value);
    }
    return registry_->claim(values, ranges_, line, dryRun);
}

void ValueSource::openRegistry()
{
    registry_ = open_(options_.dryRun ? Registry::Access::kLook : Registry::Access::kGive);
}

std::vector<Done> ValueSource::preview(UnitIdentity& unit, const std::vector<Wanted>& wanted) const
{
    return identity::write(unit, wanted, {options_.overwrite, true}, [](const Done&) {});
}

/// @returns the unit with the unique values that identify it.
UnitOnLine ValueSource::lineOf(UnitIdentity& unit) const
{
    UnitOnLine line = terms_.line;
    for (const Record& record : records_) {
        if (!record.unique || record.presenceOnly) {
            continue;
        }
        if (Stored stored = unit.read(record); !stored.value.empty()) {
            line.held.emplace(record.name, std::move(stored.value));
        }
    }
    return line;
}

std::vector<Wanted> ValueSource::wantedOf(const CsvRow& row, bool own) const
{
    std::vector<Wanted> all;
    for (const Record& record : records_) {
        if (const auto found = row.values.find(record.name); found != row.values.end()) {
            all.push_back({&record, found->second, own});
        }
    }
    return all;
}

}  // namespace station::identity
