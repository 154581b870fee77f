#include "station/identity/RegistryTables.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "station/ClockText.h"

namespace station::identity {

namespace {

using sqlite::Statement;

constexpr std::array kStates{"reserved", "sending", "written", "verified", "seen", "blocked"};

std::string now()
{
    return isoUtc(std::chrono::system_clock::now(), 6);
}

/// @returns the state of that name; an unknown one keeps its value from being given.
State stateOf(std::string_view text)
{
    const auto found = std::ranges::find(kStates, text);
    return found == kStates.end() ? State::kBlocked : static_cast<State>(found - kStates.begin());
}

}  // namespace

const char* name(State state)
{
    return kStates.at(static_cast<std::size_t>(state));
}

std::string UniqueValue::shown() const
{
    return fmt::format("{} {}", record->name, text);
}

bool isGiven(State state)
{
    return state != State::kSeen && state != State::kBlocked;
}

RegistryTables::RegistryTables(sqlite::Database& database, std::string serialRecord)
    : database_(database)
    , serialRecord_(std::move(serialRecord))
    , owners_(database.prepare("SELECT unit, state, record, reason FROM value WHERE space = ? AND value = ?"))
{
}

std::optional<RegistryTables::Owner> RegistryTables::ownerOf(const UniqueValue& value)
{
    owners_.bindAll(value.record->space, value.text);
    std::optional<Owner> owner;
    if (owners_.step()) {
        owner = {owners_.number(0), stateOf(owners_.text(1)), owners_.text(2), owners_.text(3)};
    }
    owners_.reset();
    return owner;
}

UnitId RegistryTables::unitOf(const std::string& label)
{
    Statement statement = database_.prepare("SELECT id FROM unit WHERE label = ?", label);
    return statement.step() ? statement.number(0) : kNobody;
}

std::string RegistryTables::labelOf(UnitId unit)
{
    Statement statement = database_.prepare("SELECT label FROM unit WHERE id = ?", unit);
    return statement.step() ? statement.text(0) : "";
}

/// @param unit an expression; ?1 has to be the serial record
std::string RegistryTables::nameSql(std::string_view unit)
{
    return fmt::format(
        "COALESCE((SELECT label FROM unit WHERE id = {0}), (SELECT value FROM value WHERE unit = {0} AND record IN "
        "(?1, 'factory-serial') ORDER BY record = ?1 DESC, time DESC LIMIT 1), '#' || {0})",
        unit);
}

std::string RegistryTables::nameOf(UnitId unit)
{
    Statement statement = database_.prepare("SELECT " + nameSql("?2"), serialRecord_, unit);
    statement.step();
    return statement.text(0);
}

UnitId RegistryTables::addUnit(const std::string& label)
{
    database_.run("INSERT INTO unit(label) VALUES(NULLIF(?, ''))", label);
    return database_.lastRow();
}

void RegistryTables::setLabel(UnitId unit, const std::string& label)
{
    database_.run("UPDATE unit SET label = ? WHERE id = ?", label, unit);
}

std::vector<std::pair<std::string, std::string>> RegistryTables::given(UnitId unit, std::string_view record)
{
    std::vector<std::pair<std::string, std::string>> all;
    Statement statement = database_.prepare(
        "SELECT record, value FROM value WHERE unit = ?1 AND state NOT IN ('seen', 'blocked') AND ?2 IN ('', record)",
        unit, record);
    while (statement.step()) {
        all.emplace_back(statement.text(0), statement.text(1));
    }
    return all;
}

std::string RegistryTables::otherValue(UnitId unit, std::string_view record, const std::string& text)
{
    for (const auto& [name, value] : given(unit, record)) {
        if (value != text) {
            return value;
        }
    }
    return {};
}

bool RegistryTables::wasSentValues(UnitId unit)
{
    return database_
        .prepare("SELECT 1 FROM value WHERE unit = ? AND state NOT IN ('seen', 'blocked', 'reserved')", unit)
        .step();
}

void RegistryTables::note(const char* event, std::string_view space, std::string_view value, UnitId unit,
                          std::string_view reason)
{
    database_.run("INSERT INTO event(time, event, space, value, unit, reason) VALUES(?, ?, ?, ?, ?, ?)", now(), event,
                  space, value, unit, reason);
}

void RegistryTables::note(const char* event, const UniqueValue& value, UnitId unit, std::string_view reason)
{
    note(event, value.record->space, value.text, unit, reason);
}

void RegistryTables::put(const UniqueValue& value, UnitId unit, State state, std::string_view reason)
{
    database_.run(
        "INSERT INTO value VALUES(?, ?, ?, ?, ?, ?, '') ON CONFLICT DO UPDATE SET state = excluded.state, "
        "record = excluded.record, time = excluded.time",
        value.record->space, value.text, value.record->name, unit, name(state), now());
    note(name(state), value, unit, reason);
}

void RegistryTables::block(const UniqueValue& value, std::string_view reason)
{
    database_.run("INSERT OR REPLACE INTO value VALUES(?, ?, '', ?, 'blocked', ?, ?)", value.record->space, value.text,
                  kNobody, now(), reason);
    note("blocked", value, kNobody, reason);
}

/// @returns the query for entries; ?1 has to be the serial record.
std::string RegistryTables::entrySql(std::string_view end)
{
    return fmt::format(
        "SELECT v.space, v.value, v.record, CASE v.unit WHEN 0 THEN '' ELSE {} END, v.state, v.time, v.reason FROM "
        "value AS v {}",
        nameSql("v.unit"), end);
}

Registry::Entry RegistryTables::entryOf(const Statement& row)
{
    return {row.text(0), row.text(1), row.text(2), row.text(3), stateOf(row.text(4)), row.text(5), row.text(6), {}};
}

void RegistryTables::reportAll(const Report& report)
{
    Statement values = database_.prepare(entrySql("ORDER BY v.space, v.value"), serialRecord_);
    while (values.step()) {
        report(entryOf(values));
    }
}

void RegistryTables::reportOne(const UniqueValue& value, const Report& report)
{
    Statement found = database_.prepare(entrySql("WHERE v.space = ?2 AND v.value = ?3"), serialRecord_,
                                        value.record->space, value.text);
    if (!found.step()) {
        return;
    }
    Registry::Entry entry = entryOf(found);
    Statement events = database_.prepare(
        fmt::format("SELECT e.time, e.event, CASE e.unit WHEN 0 THEN '' ELSE {} END, e.reason FROM event AS e WHERE "
                    "e.space = ?2 AND e.value = ?3 ORDER BY e.id",
                    nameSql("e.unit")),
        serialRecord_, value.record->space, value.text);
    while (events.step()) {
        entry.events.push_back({events.text(0), events.text(1), events.text(2), events.text(3)});
    }
    report(entry);
}

}  // namespace station::identity
