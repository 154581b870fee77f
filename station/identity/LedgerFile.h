#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "station/Interrupt.h"
#include "station/identity/CsvSource.h"

namespace station::identity {

/// The file beside a CSV file, FILE.ledger, by which stations share its rows: JSON lines. It names the registry that
/// they ask; in ledgers from before there were registries, lines say which unit has which row. Locked while this
/// object lives (fcntl, an open file description lock). Throws RegistryError and Interrupted.
class LedgerFile
{
public:
    /// Reads it. A last line without its line end counts like any other, and one that cannot be read is an error.
    /// @param mayCreate whether a file that is not there is made; otherwise it reads as an empty one.
    LedgerFile(std::string path, const Interrupt* interrupt, bool mayCreate);
    ~LedgerFile();
    LedgerFile(const LedgerFile&) = delete;
    LedgerFile& operator=(const LedgerFile&) = delete;

    struct Reservation {
        std::string unit;
        std::string by;    ///< "label" or "serial" is what `unit` is; empty in the oldest ledgers
        std::string held;  ///< factory serial number that the unit had then
        Values values;
        bool used = false;  ///< the unit had its values
    };

    /// @returns all since it named a registry last.
    const std::vector<Reservation>& reservations() const { return reservations_; }

    /// @returns the UUID of the registry that it names; empty for none.
    const std::string& registry() const { return registry_; }

    /// Lets it name this registry; on the disk when this returns.
    void nameRegistry(const std::string& uuid);

    /// @returns whether there is a file.
    bool exists() const { return descriptor_ >= 0; }

private:
    void lock(const Interrupt* interrupt);
    void take(const std::string& line, std::size_t number);
    [[noreturn]] void fail(const std::string& what) const;

    std::string path_;
    int descriptor_ = -1;
    off_t end_ = 0;
    bool endsWithinLine_ = false;
    std::vector<Reservation> reservations_;
    std::map<std::pair<std::string, std::string>, std::size_t> newest_;  // by name and kind of name
    std::string registry_;
};

/// @returns the path of the ledger beside a CSV file, whatever links lead to it.
std::string ledgerPath(const std::string& csvPath);

}  // namespace station::identity
