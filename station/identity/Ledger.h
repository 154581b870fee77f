#pragma once

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "station/Interrupt.h"
#include "station/identity/CsvSource.h"

namespace station::identity {

/// No row can be had: one line that says why.
class NoRow : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The ledger cannot be used: one line with its name. Nothing may be given away then.
class LedgerError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Says which row of a CSV file went to which unit, so that no value is ever given twice. Lies beside the file, as
/// FILE.ledger: one JSON object a line, appended and on the disk before a value is used. Any number of stations may
/// share it; it is locked with open file description locks (fcntl), a byte for the whole and a byte for each
/// reservation, which the kernel takes back when a station dies.
///
/// A reservation is never taken back, whatever happens to the unit. The same unit gets its own row again; once the row
/// has been used, a unit that holds none of the row's unique values does not count as the same one, whatever it is
/// called.
class Ledger
{
public:
    enum class Access {
        kReserve,  ///< the file is made when there is none
        kLook,     ///< nothing is made and nothing changed; for `rowOf` and dry runs only
    };

    /// Opens the ledger of a CSV file, whatever links lead to it. Throws LedgerError.
    /// @param records,interrupt outlive the ledger; `interrupt` may be nullptr.
    Ledger(const std::string& csvPath, Records records, const Interrupt* interrupt, Access access = Access::kReserve);
    ~Ledger();
    Ledger(const Ledger&) = delete;
    Ledger& operator=(const Ledger&) = delete;

    /// Which unit is on the line. At least one of them is not empty.
    struct Unit {
        std::string id;      ///< what tells it from others before it has an identity: printed on it, for one
        std::string serial;  ///< the factory serial number that it holds
        Values held = {};    ///< unique records that it holds beside that, as far as they are known
        /// Somebody vouches that a unit without anything of its row is the one that was given it: its memory was
        /// erased.
        bool erased = false;
    };

    struct Grant {
        CsvRow row;
        /// The unit as the ledger knows it.
        std::string unit;
        /// The unit had the row before.
        bool again = false;
    };

    /// Chooses the row for a unit: its own when it has one; else that with the factory serial number `serial`, when
    /// that is given; else, for a unit without an id, that of the serial number which it holds; else the first that is
    /// free. Reserves it, unless `dryRun`, and keeps it locked against other stations until this object's end. To be
    /// called once, but for dry runs. Throws NoRow, LedgerError, Interrupted.
    Grant reserve(const CsvTable& table, const Unit& unit, const std::optional<std::string>& serial, bool dryRun);

    /// @returns the row that the unit of this id has been given; nothing for none. Throws as `reserve` does.
    std::optional<CsvRow> rowOf(const CsvTable& table, const std::string& id);

    /// Notes that the unit which was granted a row has all its values: that they were compared, or else that they were
    /// written and one of them cannot be read back. Either way the row is used. To be called after `reserve` only.
    void noteUsed(bool verified);

    const std::string& path() const { return path_; }

private:
    /// Names of units: what somebody calls one may be what another one's factory serial says.
    struct Name {
        std::string text;
        std::string by;  // "label", "serial"; empty in ledgers from before they were told apart

        bool operator==(const Name&) const = default;
        bool is(const std::string& wanted, const char* kind) const
        {
            return text == wanted && (by.empty() || by == kind);
        }
    };

    struct Reservation {
        Name unit;
        std::string held;  // the factory serial that the unit had then
        Values values;     // unique ones
        off_t offset = 0;  // of its line: the byte that is locked while it is worked on
        bool used = false;
    };
    /// The newest last; a unit has one at most.
    using Reservations = std::vector<Reservation>;

    class WholeLock;

    Reservations load();
    void append(const std::string& line);
    Reservations::const_iterator ownOf(const Unit& unit, const Reservations& given) const;
    void refuseOthers(const CsvTable& table, const CsvRow& row, const Reservation& own, const Unit& unit) const;
    const CsvRow* rowFor(const CsvTable& table, const Reservation& reservation) const;
    bool tryLock(off_t offset) const;
    [[noreturn]] void fail(const std::string& what) const;

    std::string path_;
    Records records_;
    const Interrupt* interrupt_;
    Access access_;
    int descriptor_ = -1;  // none for a look at a ledger that is not there
    off_t end_ = 0;        // of what load() has read
    Name granted_;
};

}  // namespace station::identity
