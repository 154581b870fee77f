#include "station/identity/Registry.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <utility>

#include "protocol/Errors.h"
#include "protocol/Text.h"
#include "protocol/catalogue/HexBytes.h"
#include "station/identity/LedgerFile.h"
#include "station/identity/RegistryFile.h"
#include "station/identity/RegistryJudge.h"

namespace station::identity {

namespace {

using protocol::StorageError;
using sqlite::Statement;
using sqlite::Transaction;

constexpr std::string_view kFactorySerial = "factory-serial";

/// @returns the bytes of a value that is spelled as the registry lists it, "hex:8081"; any other value unchanged.
std::string bytesOf(const std::string& spelled)
{
    const auto bytes = spelled.starts_with(kHex)
                           ? protocol::catalogue::parseHexBytes(std::string_view(spelled).substr(kHex.size()))
                           : std::nullopt;
    return bytes && !bytes->empty() ? std::string(bytes->begin(), bytes->end()) : spelled;
}

}  // namespace

struct Registry::Impl {
    Impl(const std::string& path, Records all, const UnitRules& unitRules, const Interrupt* toInterrupt, Access access)
        : records(all)
        , rules(unitRules)
        , interrupt(toInterrupt)
        , file(path, access, toInterrupt)
        , tables(file.database(), rules.serial.name)
        , judge(tables, records, rules)
    {
    }

    /// Values that were judged and are to be reserved together.
    struct Claims {
        RegistryJudge::Known known;
        std::vector<std::pair<RegistryJudge::Claim, UniqueValue>> all = {};
    };

    /// Reserves the claims; on a dry run until the end of `transaction` only.
    UnitId settle(const Claims& claims, const UnitOnLine& line, Transaction& transaction, bool dryRun)
    {
        const UnitId unit = judge.settle(claims.known, line);
        for (const auto& [claim, value] : claims.all) {
            judge.reserve(claim, value, unit, line);
        }
        if (!dryRun) {
            if (!file.lockUnit(unit)) {
                throw NotGiven(
                    fmt::format("another station works on unit {}: try again when it is done", tables.nameOf(unit)));
            }
            file.commit(transaction);
        }
        return unit;
    }

    bool isOwn(const UniqueValue& value, UnitId unit)
    {
        const auto owner = tables.ownerOf(value);
        return owner && owner->unit == unit;
    }

    /// @returns the row that the unit was given; nullptr for none. Throws NotGiven if it has changed or disappeared.
    const CsvRow* rowFor(const CsvTable& table, UnitId unit)
    {
        if (unit == kNobody) {
            return nullptr;
        }
        const auto own = [&](const UniqueValue& value) { return isOwn(value, unit); };
        for (const CsvRow& row : table.rows) {
            const auto unique = judge.uniqueOf(row.values);
            if (std::ranges::none_of(unique, own)) {
                continue;
            }
            for (const UniqueValue& value : unique) {
                if (!own(value) && !tables.otherValue(unit, value.record->name, value.text).empty()) {
                    throw NotGiven(fmt::format("{}:{}: this row has changed since it was given to unit {}", table.path,
                                               row.line, tables.nameOf(unit)));
                }
            }
            return &row;
        }
        for (const auto& [record, value] : tables.given(unit)) {
            const std::string& column = record;
            if (std::ranges::any_of(table.rows, [&](const CsvRow& row) { return row.values.contains(column); })) {
                throw NotGiven(fmt::format("the row that was given to unit {} ({} {}) is no longer in {}",
                                           tables.nameOf(unit), record, value, table.path));
            }
        }
        return nullptr;
    }

    const CsvRow& freeRow(const CsvTable& table, UnitId unit)
    {
        const auto isFree = [&](const UniqueValue& value) {
            const auto owner = tables.ownerOf(value);
            return !owner || (owner->unit == unit && unit != kNobody);
        };
        const auto found = std::ranges::find_if(
            table.rows, [&](const CsvRow& row) { return std::ranges::all_of(judge.uniqueOf(row.values), isFree); });
        if (found == table.rows.end()) {
            throw NotGiven(
                fmt::format("{}: all {} rows have been given away: add rows", table.path, table.rows.size()));
        }
        return *found;
    }

    /// @returns the unit's own value of a range, else the one after the highest that was given, else the lowest free
    /// one. Throws NotGiven if there is none.
    /// @param taken values that the unit gets, too
    std::string nextOf(const ValueRange& range, const RegistryJudge::Known& known, const UnitOnLine& line,
                       const Values& taken)
    {
        const Record& record = *range.record;
        std::uint64_t number = 0;
        if (const auto held = line.held.find(record.name);
            held != line.held.end() && range.contains(registryText(record, held->second), number)) {
            return range.value(number);
        }
        for (const auto& [name, own] : tables.given(known.unit, record.name)) {
            if (range.contains(own, number)) {
                return own;
            }
        }
        const auto unique = judge.uniqueOf(taken);
        const auto mayBeGiven = [&](const std::string& value) {
            return reservedAddress(record, value).empty() && std::ranges::none_of(unique, [&](const UniqueValue& one) {
                       return one.record->space == record.space && one.text == value;
                   });
        };
        // As texts of one length, values are in the order of their numbers.
        const auto takenFrom = [&](std::uint64_t from, const char* order) {
            return file.database().prepare(
                fmt::format("SELECT value FROM value WHERE space = ? AND value BETWEEN ? AND ? ORDER BY value {}",
                            order),
                record.space, range.value(from), range.value(range.last));
        };
        std::uint64_t afterHighest = range.first;
        for (Statement down = takenFrom(range.first, "DESC"); down.step();) {
            if (range.contains(down.text(0), number)) {
                afterHighest = number + 1;
                break;
            }
        }
        for (std::uint64_t candidate : {afterHighest, range.first}) {
            if (candidate > range.last) {
                continue;
            }
            Statement up = takenFrom(candidate, "ASC");
            for (bool more = true; more;) {
                more = up.step();
                if (more && !range.contains(up.text(0), number)) {
                    continue;
                }
                for (const auto end = more ? number : range.last + 1; candidate < end; ++candidate) {
                    if (std::string value = range.value(candidate); mayBeGiven(value)) {
                        return value;
                    }
                }
                ++candidate;
            }
        }
        throw NotGiven(fmt::format("{}: all values from {} to {} have been given away: add another range", record.name,
                                   range.value(range.first), range.value(range.last)));
    }

    /// @returns how many values of the reservation are new.
    std::size_t import(const LedgerFile::Reservation& one)
    {
        std::size_t fresh = 0;
        const auto serialOf = [&](const std::string& serial) {
            const auto values = judge.uniqueOf({{std::string(kFactorySerial), serial}});
            return values.empty() ? std::nullopt : std::optional(values.front());
        };
        UnitId unit = one.by == "serial" ? kNobody : tables.unitOf(one.unit);
        const auto values = judge.uniqueOf(one.values);
        std::vector<UniqueValue> telling = values;
        if (const auto serial = one.by == "serial" ? serialOf(one.unit) : std::nullopt) {
            telling.insert(telling.begin(), *serial);
        }
        for (const UniqueValue& value : telling) {
            const auto owner = tables.ownerOf(value);
            unit = unit == kNobody && owner ? owner->unit : unit;
        }
        if (unit == kNobody) {
            unit = tables.addUnit(one.by == "serial" ? "" : one.unit);
        }
        const State state = one.used ? State::kWritten : State::kSending;
        for (const UniqueValue& value : values) {
            const auto owner = tables.ownerOf(value);
            if (!owner) {
                tables.put(value, unit, state, "imported");
                ++fresh;
            } else if (owner->unit != unit) {
                tables.note("given-twice", value, unit, "imported from a ledger");
                givenTwice.push_back(fmt::format("{}, which unit {} has", value.shown(), tables.nameOf(owner->unit)));
            } else if (owner->state == State::kSending && one.used) {
                tables.put(value, unit, state, "imported");
            }
        }
        for (const std::string& text : {one.held, one.by == "label" ? std::string() : one.unit}) {
            if (const auto serial = serialOf(text); serial && !tables.ownerOf(*serial)) {
                tables.put(*serial, unit, State::kSeen, "imported");
            }
        }
        return fresh;
    }

    std::size_t import(const LedgerFile& ledger)
    {
        std::size_t fresh = 0;
        for (const auto& one : ledger.reservations()) {
            fresh += import(one);
        }
        return fresh;
    }

    void refuseForeign(const LedgerFile& ledger) const
    {
        if (!ledger.registry().empty() && ledger.registry() != file.uuid()) {
            throw StorageError(
                fmt::format("{}: registry {} gives out its values, but this station has registry {} ({})",
                            ledger.path(), ledger.registry(), file.uuid(), file.path()));
        }
    }

    const Records records;
    const UnitRules& rules;
    const Interrupt* const interrupt;
    RegistryFile file;
    RegistryTables tables;
    RegistryJudge judge;
    std::vector<std::string> givenTwice;
};

Registry::Registry(const std::string& path, Records records, const UnitRules& rules, const Interrupt* interrupt,
                   Access access)
    : impl_(std::make_unique<Impl>(path, records, rules, interrupt, access))
{
}

Registry::~Registry() = default;

Registry::Grant Registry::reserve(const CsvTable& table, const UnitOnLine& unit, const std::string& serial, bool dryRun)
{
    Impl& my = *impl_;
    my.file.refuseCopy();
    std::optional<LedgerFile> ledger(std::in_place, ledgerPath(table.path), my.interrupt, !dryRun);
    my.refuseForeign(*ledger);
    if (!dryRun) {
        if (!ledger->reservations().empty()) {
            Transaction import(my.file.database());
            my.import(*ledger);
            my.file.commit(import);
        }
        ledger->nameRegistry(my.file.uuid());
    }

    Transaction transaction(my.file.database());
    if (dryRun) {
        my.import(*ledger);
    }
    ledger.reset();
    const CsvRow* const chosen = serial.empty() ? nullptr : &table.rowOf(serial);
    Impl::Claims claims{my.judge.identify(unit)};
    RegistryJudge::Known& known = claims.known;
    const CsvRow* row = my.rowFor(table, known.unit);
    const bool again = row != nullptr;
    if (again && chosen != nullptr && row != chosen) {
        throw NotGiven(fmt::format("unit {} has been given line {} of {}: expected its serial, got --serial {}",
                                   my.tables.nameOf(known.unit), row->line, table.path, serial));
    }
    if (again) {
        known.shown = known.shown || RegistryJudge::holdsAny(unit, my.judge.uniqueOf(row->values));
        my.judge.refuseStranger(known, unit, fmt::format("line {} of {}", row->line, table.path));
    } else if (chosen != nullptr) {
        row = chosen;
    } else if (const auto held = unit.held.find(kFactorySerial); unit.label.empty() && held != unit.held.end()) {
        row = table.find(held->second);
    }
    if (row == nullptr) {
        row = &my.freeRow(table, known.unit);
    }
    for (const UniqueValue& value : my.judge.uniqueOf(row->values)) {
        try {
            claims.all.emplace_back(my.judge.judge(known, unit, value), value);
        } catch (const NotGiven& error) {
            throw NotGiven(fmt::format("{}:{}: {}", table.path, row->line, error.what()));
        }
    }
    const UnitId id = my.settle(claims, unit, transaction, dryRun);
    return {id, my.tables.nameOf(id), *row, again};
}

Registry::Grant Registry::claim(const Values& values, std::span<const ValueRange> ranges, const UnitOnLine& unit,
                                bool dryRun)
{
    Impl& my = *impl_;
    my.file.refuseCopy();
    Transaction transaction(my.file.database());
    Impl::Claims claims{my.judge.identify(unit)};
    const auto unique = my.judge.uniqueOf(values);
    claims.known.shown = claims.known.shown || RegistryJudge::holdsAny(unit, unique);
    for (const UniqueValue& value : unique) {
        claims.all.emplace_back(my.judge.judge(claims.known, unit, value), value);
    }
    Grant grant{0, {}, {0, values}, false};
    for (const ValueRange& range : ranges) {
        const UniqueValue value{range.record, my.nextOf(range, claims.known, unit, grant.row.values)};
        grant.again = grant.again || my.tables.ownerOf(value);
        claims.all.emplace_back(my.judge.judge(claims.known, unit, value), value);
        grant.row.values[std::string(range.record->name)] = value.text;
    }
    grant.unit = my.settle(claims, unit, transaction, dryRun);
    grant.name = my.tables.nameOf(grant.unit);
    return grant;
}

std::optional<CsvRow> Registry::rowOf(const CsvTable& table, const std::string& label)
{
    Impl& my = *impl_;
    const LedgerFile ledger(ledgerPath(table.path), my.interrupt, false);
    my.refuseForeign(ledger);
    Transaction transaction(my.file.database());
    my.import(ledger);
    const CsvRow* row = my.rowFor(table, my.tables.unitOf(label));
    return row == nullptr ? std::nullopt : std::optional(*row);
}

std::pair<UnitId, bool> Registry::send(const Record& record, std::string_view text, const UnitOnLine& unit,
                                       std::optional<UnitId> before)
{
    Impl& my = *impl_;
    my.file.refuseCopy();
    Transaction transaction(my.file.database());
    RegistryJudge::Known known = my.judge.identify(unit);
    if (before && known.unit != kNobody && known.unit != *before && unit.reissue.empty()) {
        throw NotGiven(fmt::format("expected unit {} on the line, as before, got unit {}", my.tables.nameOf(*before),
                                   my.tables.nameOf(known.unit)));
    }
    if (before) {
        known = {*before, true};
    }
    const UniqueValue value{&record, registryText(record, text)};
    const auto claim = my.judge.judge(known, unit, value);
    const UnitId id = my.judge.settle(known, unit);
    const bool gives = claim != RegistryJudge::Claim::kHeld && !RegistryJudge::holds(unit, value);
    if (!gives) {
        my.tables.note("seen", value, id);
    } else if (claim == RegistryJudge::Claim::kReissued) {
        my.tables.note("reissued", value, id, unit.reissue);
    } else if (const auto owner = my.tables.ownerOf(value);
               owner && (owner->state == State::kWritten || owner->state == State::kVerified)) {
        my.tables.note("sending", value, id);
    } else {
        my.tables.put(value, id, State::kSending);
    }
    my.file.commit(transaction);
    return {id, gives};
}

void Registry::conclude(UnitId unit, std::span<const Arrival> arrivals)
{
    Impl& my = *impl_;
    Transaction transaction(my.file.database());
    for (const Arrival& one : arrivals) {
        static_assert(State::kReserved < State::kSending && State::kSending < State::kWritten &&
                      State::kWritten < State::kVerified);
        const UniqueValue value{one.record, registryText(*one.record, one.value)};
        const auto owner = my.tables.ownerOf(value);
        if (owner && owner->unit == unit && isGiven(owner->state) && owner->state < one.state) {
            my.tables.put(value, unit, one.state);
        }
    }
    my.file.commit(transaction);
}

void Registry::list(const std::function<void(const Entry&)>& report, const std::optional<std::string>& value)
{
    Impl& my = *impl_;
    if (!value) {
        my.tables.reportAll(report);
        return;
    }
    std::set<std::string_view> spaces;
    for (const Record& record : my.records) {
        if (record.unique && spaces.insert(record.space).second) {
            my.tables.reportOne({&record, registryText(record, bytesOf(*value))}, report);
        }
    }
}

void Registry::block(const std::string& spelled, const std::string& reason)
{
    Impl& my = *impl_;
    my.file.refuseCopy();
    Transaction transaction(my.file.database());
    const std::string bytes = bytesOf(spelled);
    std::set<std::string_view> spaces;
    for (const Record& record : my.records) {
        if (!record.unique || spaces.contains(record.space)) {
            continue;
        }
        UniqueValue value{&record, {}};
        try {
            value.text = registryText(record, bytes == spelled ? normalise(record, spelled) : bytes);
        } catch (const protocol::UserError&) {
            continue;
        }
        if (my.rules.isPlaceholder(record, bytes)) {
            throw NotGiven(fmt::format("{}: expected the {} of a unit, got a placeholder, which many units may have",
                                       protocol::inQuotes(spelled), record.name));
        }
        spaces.insert(record.space);
        if (const auto owner = my.tables.ownerOf(value); owner && owner->state != State::kBlocked) {
            throw NotGiven(
                fmt::format("{} {} has been given to unit {}: it cannot be blocked, and no other unit gets it",
                            owner->record, value.text, my.tables.nameOf(owner->unit)));
        }
        my.tables.block(value, reason);
    }
    if (spaces.empty()) {
        throw protocol::UserError(
            fmt::format("expected a serial number or an address, got {}", protocol::inQuotes(spelled)));
    }
    my.file.commit(transaction);
}

std::size_t Registry::importLedger(const std::string& path)
{
    Impl& my = *impl_;
    my.file.refuseCopy();
    if (!std::filesystem::exists(path)) {
        throw StorageError(path + ": " + protocol::unreadable(ENOENT));
    }
    LedgerFile ledger(path, my.interrupt, true);
    my.refuseForeign(ledger);
    Transaction transaction(my.file.database());
    const std::size_t fresh = my.import(ledger);
    my.file.commit(transaction);
    ledger.nameRegistry(my.file.uuid());
    return fresh;
}

std::size_t Registry::importTable(const CsvTable& table)
{
    Impl& my = *impl_;
    my.file.refuseCopy();
    Transaction transaction(my.file.database());
    std::size_t fresh = 0;
    for (const CsvRow& row : table.rows) {
        fresh += my.import(LedgerFile::Reservation{"", "serial", "", row.values, true});
    }
    my.file.commit(transaction);
    return fresh;
}

void Registry::adopt()
{
    Impl& my = *impl_;
    my.file.adopt([&](const std::string& trouble) { my.tables.note("adopted", "", "", kNobody, trouble); });
}

const std::vector<std::string>& Registry::givenTwice() const
{
    return impl_->givenTwice;
}

const std::string& Registry::uuid() const
{
    return impl_->file.uuid();
}

const std::string& Registry::path() const
{
    return impl_->file.path();
}

}  // namespace station::identity
