#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "station/Interrupt.h"
#include "station/identity/CsvSource.h"
#include "station/identity/SharedFile.h"

namespace station::identity {

/// The file beside a CSV file, FILE.ledger, by which stations share its rows: JSON lines. It names the registry that
/// gives out the rows. In ledgers from before there were registries, lines say which unit has which row. Locked while
/// this object lives. Throws StorageError and Interrupted.
class LedgerFile
{
public:
    /// Reads it. The last line counts even without a line end; a line that cannot be read is an error.
    /// @param mayCreate whether a file that does not exist is made; otherwise it reads as an empty one.
    LedgerFile(const std::string& path, const Interrupt* interrupt, bool mayCreate);

    struct Reservation {
        std::string unit;
        std::string by;    ///< "label" or "serial", which `unit` is; empty in the oldest ledgers
        std::string held;  ///< factory serial number that the unit had then
        Values values;
        bool used = false;  ///< the unit had its values
    };

    /// @returns all reservations since it named a registry last.
    const std::vector<Reservation>& reservations() const { return reservations_; }

    /// @returns the UUID of the registry that it names; empty for none.
    const std::string& registry() const { return registry_; }

    /// Lets it name this registry; on the disk when this returns.
    void nameRegistry(const std::string& uuid);

    const std::string& path() const { return file_.path(); }

private:
    void lock(const Interrupt* interrupt) const;
    std::string read() const;
    void take(const std::string& line, std::size_t number);

    const SharedFile file_;
    off_t end_ = 0;
    std::vector<Reservation> reservations_;
    std::map<std::pair<std::string, std::string>, std::size_t> newest_;  // by name and kind of name
    std::string registry_;
};

/// @returns the path of the ledger beside a CSV file; symbolic links to the CSV file are followed.
std::string ledgerPath(const std::string& csvPath);

}  // namespace station::identity
