#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "station/Interrupt.h"
#include "station/identity/CsvSource.h"
#include "station/identity/UnitRules.h"
#include "station/identity/ValueRange.h"

namespace station::identity {

/// A value is not given to the unit on the line: one line that says why.
class NotGiven : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The registry cannot be used: one line with its name. Nothing may be given away then.
class RegistryError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Which unit is on the line.
struct UnitOnLine {
    std::string label = {};  ///< what tells it from others before it has a serial: printed on it, for one
    Values held = {};        ///< unique records that it holds, byte by byte, as far as they are known
    /// Somebody vouches that a unit without anything that it was given is the one that it was given to: its memory was
    /// erased.
    bool erased = false;
    /// Why values of another unit go to this one, whose board replaces the other's; empty: they do not.
    std::string reissue = {};
};

/// A unit as the registry numbers it.
using UnitId = std::int64_t;

enum class State : std::uint8_t {
    kReserved,  ///< chosen for a unit, which has not seen it
    kSending,   ///< on its way: the unit may have it
    kWritten,   ///< sent, and not read back
    kVerified,  ///< read back
    kSeen,      ///< a unit was found with it
    kBlocked,   ///< never to be given
};

/// @returns "reserved", "sending", "written", "verified", "seen", "blocked".
const char* name(State state);

/// Every unique value that was given to a unit, seen in one, or blocked, so that no value is given twice: one SQLite
/// database, which any number of stations may share where file locks work. A value is never taken back. For one
/// thread.
///
/// The same unit gets its own values again. It is known by a unique value that it holds, then by its label; a
/// placeholder tells no unit from another. Once values have been sent, a unit that holds none of them does not count
/// as the same one.
///
/// All functions throw RegistryError and Interrupted; those that give also throw NotGiven.
class Registry
{
public:
    enum class Access {
        kGive,  ///< the database is made when there is none; refused for a copy of a registry
        kLook,  ///< nothing is made and nothing changed
    };

    /// @param path of the database; its folder is made when it is missing.
    /// @param records,rules,interrupt outlive the registry; `interrupt` may be nullptr.
    Registry(const std::string& path, Records records, const UnitRules& rules, const Interrupt* interrupt,
             Access access = Access::kGive);
    ~Registry();
    Registry(const Registry&) = delete;
    Registry& operator=(const Registry&) = delete;

    struct Grant {
        UnitId unit = 0;
        /// The unit as the registry calls it.
        std::string name;
        CsvRow row;
        /// The unit was given these values before.
        bool again = false;
    };

    /// Chooses the row for a unit: its own when it has one; else that with the factory serial number `serial`, when
    /// that is given; else, for a unit without a label, that of the factory serial number which it holds; else the
    /// first that is free. Reserves it, unless `dryRun`, and keeps the unit locked against other stations until this
    /// object's end. A ledger beside the file is imported first, and names this registry from then on.
    Grant reserve(const CsvTable& table, const UnitOnLine& unit, const std::optional<std::string>& serial, bool dryRun);

    /// Reserves these values for a unit, and the next free ones of the ranges; its own when it has some of a range
    /// already. Locks the unit as `reserve` does. The values of the grant's row are all of them.
    Grant claim(const Values& values, std::span<const ValueRange> ranges, const UnitOnLine& unit, bool dryRun);

    /// @returns the row that the unit of this label has been given; nothing for none.
    std::optional<CsvRow> rowOf(const CsvTable& table, const std::string& label);

    /// Says whether a value may be sent to the unit on the line now, and notes that before it is.
    /// @param known the unit that was on the line before, if it cannot have been changed since
    /// @returns the unit, and whether anything is given: writing back what the unit holds gives nothing.
    std::pair<UnitId, bool> send(const Record& record, std::string_view value, const UnitOnLine& unit,
                                 std::optional<UnitId> known);

    /// Notes how values that were sent have arrived: kWritten or kVerified; what was kVerified before stays so.
    struct Arrival {
        const Record* record = nullptr;
        std::string value;
        State state = State::kWritten;
    };
    void conclude(UnitId unit, std::span<const Arrival> arrivals);

    struct Entry {
        std::string space;
        std::string value;
        std::string record;  ///< as which it was given; empty for a blocked one
        std::string unit;    ///< as the registry calls it; empty for a blocked one
        State state = State::kSeen;
        std::string time;    ///< of the state, UTC
        std::string reason;  ///< of a blocked one

        struct Event {
            std::string time;  ///< UTC
            std::string event;
            std::string unit;  ///< empty for none
            std::string reason;
        };
        std::vector<Event> events;  ///< what has happened to it, oldest first; only when one value is asked for
    };

    /// Tells of all values, or of those that are `value` in whatever spelling, in the order of their names.
    void list(const std::function<void(const Entry&)>& tell, const std::optional<std::string>& value = {});

    /// Keeps a value from being given, in every name space in which it could be a value.
    void block(const std::string& value, const std::string& reason);

    /// Takes over a ledger, FILE.csv.ledger, which names this registry from then on, or the values of a CSV file, each
    /// row of which a unit has.
    /// @returns how many values are new.
    std::size_t importLedger(const std::string& path);
    std::size_t importTable(const CsvTable& table);

    /// @returns which values the imports found that another unit has already, "factory-serial SN1, which unit U1 has".
    const std::vector<std::string>& givenTwice() const;

    /// Makes a copy, or a database that was put in the place of a newer one, the registry that it was.
    void adopt();

    const std::string& uuid() const;
    const std::string& path() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace station::identity
