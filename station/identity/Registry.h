#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "station/Interrupt.h"
#include "station/identity/CsvSource.h"
#include "station/identity/UnitRules.h"
#include "station/identity/ValueRange.h"

namespace station::identity {

/// Which unit is on the line.
struct UnitOnLine {
    std::string label = {};  ///< its name before it has a serial number; printed on it, for example
    Values held = {};        ///< the unique records that it holds, byte by byte, as far as they are known
    /// The user states that a unit which holds none of its values is the same unit, and that its memory was erased.
    bool erased = false;
    /// Why this unit gets the values of another one, whose board it replaces; empty if it does not.
    std::string reissue = {};
};

/// A unit as the registry numbers it.
using UnitId = std::int64_t;

enum class State : std::uint8_t {
    kReserved,  ///< chosen for a unit, not sent yet
    kSending,   ///< noted before the frame goes out: the unit may have it
    kWritten,   ///< sent, not read back
    kVerified,  ///< read back
    kSeen,      ///< found in a unit
    kBlocked,   ///< never given
};

/// @returns "reserved", "sending", "written", "verified", "seen", "blocked".
const char* name(State state);

/// Every unique value that was given to a unit, seen in one, or blocked, so that no value is given twice: one SQLite
/// database, which any number of stations may share on a file system with working locks. A value is never taken back.
/// For one thread.
///
/// The same unit gets its own values again. It is known by a unique value that it holds, then by its label; a
/// placeholder identifies no unit. Once values have been sent, a unit that holds none of them does not count as the
/// same one.
///
/// All functions throw StorageError if the registry cannot be used, and Interrupted; those that give throw NotGiven.
class Registry
{
public:
    enum class Access {
        kGive,  ///< makes the database if there is none; a copy of a registry gives nothing
        kLook,  ///< makes and changes nothing
    };

    /// @param path of the database; its folder is made if it is missing.
    /// @param records,rules,interrupt outlive the registry; `interrupt` may be nullptr.
    Registry(const std::string& path, Records records, const UnitRules& rules, const Interrupt* interrupt,
             Access access = Access::kGive);
    ~Registry();
    Registry(const Registry&) = delete;
    Registry& operator=(const Registry&) = delete;

    struct Grant {
        UnitId unit = 0;
        std::string name;  ///< the registry's name for the unit
        CsvRow row;
        /// The unit was given these values before.
        bool again = false;
    };

    /// Chooses the row for a unit: its own if it has one; else that of the factory serial number `serial`, if there is
    /// one; else, for a unit without a label, that of the factory serial number that it holds; else the first free one.
    /// Unless `dryRun`, reserves the row and keeps the unit locked against other stations until this object's end. A
    /// ledger beside the file is imported first, and names this registry from then on.
    /// @param serial may be empty
    Grant reserve(const CsvTable& table, const UnitOnLine& unit, const std::string& serial, bool dryRun);

    /// Reserves these values for a unit, and the next free ones of the ranges, or its own if it has some of a range.
    /// Locks the unit as `reserve` does. The grant's row has all the values.
    Grant claim(const Values& values, std::span<const ValueRange> ranges, const UnitOnLine& unit, bool dryRun);

    /// @returns the row that the unit with this label has been given; nothing for none.
    std::optional<CsvRow> rowOf(const CsvTable& table, const std::string& label);

    /// Refuses a value that must not go to the unit on the line, or notes that it is sent now.
    /// @param known the unit that was on the line before, if it cannot have been changed since
    /// @returns the unit, and whether the value is given: writing back what the unit holds gives nothing.
    std::pair<UnitId, bool> send(const Record& record, std::string_view value, const UnitOnLine& unit,
                                 std::optional<UnitId> known);

    /// Notes how values that were sent have arrived: kWritten or kVerified. A value that is kVerified stays so.
    struct Arrival {
        const Record* record = nullptr;
        std::string value;
        State state = State::kWritten;
    };
    void conclude(UnitId unit, std::span<const Arrival> arrivals);

    struct Entry {
        std::string space;
        std::string value;
        std::string record;  ///< empty for a blocked value
        std::string unit;    ///< the registry's name for the unit; empty for a blocked value
        State state = State::kSeen;
        std::string time;    ///< of the state, UTC
        std::string reason;  ///< why it is blocked

        struct Event {
            std::string time;  ///< UTC
            std::string event;
            std::string unit;  ///< empty for none
            std::string reason;
        };
        std::vector<Event> events;  ///< its history, oldest first; only with `value`
    };

    /// Reports all values in the order of their names, or those that are `value` in any spelling.
    void list(const std::function<void(const Entry&)>& report, const std::optional<std::string>& value = {});

    /// Makes sure that a value is never given, in every name space in which it could be a value.
    void block(const std::string& value, const std::string& reason);

    /// Adds the values of a ledger, FILE.csv.ledger, which names this registry from then on, or those of a CSV file
    /// whose rows all belong to units.
    /// @returns how many values are new
    std::size_t importLedger(const std::string& path);
    std::size_t importTable(const CsvTable& table);

    /// @returns the imported values that another unit had already, "factory-serial SN1, which unit U1 has".
    const std::vector<std::string>& givenTwice() const;

    /// Lets a copied or restored database give values.
    void adopt();

    const std::string& uuid() const;
    const std::string& path() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

/// Opens the registry of the station; called when it is needed first.
using OpenRegistry = std::function<std::unique_ptr<Registry>(Registry::Access)>;

}  // namespace station::identity
