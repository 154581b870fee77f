#pragma once

#include <string>

#include "station/identity/Provision.h"
#include "station/identity/SharedFile.h"

namespace station::identity {

/// The log of what was done to units: one JSON object a line with "schema", "time", "port", "unit", "record", "old",
/// "new", "read" and "result", and "waived" if a rule was waived. A line is on the disk when its function returns.
/// Because the journal holds passwords, only its owner can read a new one.
class Journal
{
public:
    /// Opens or creates the file and its folder. Throws StorageError with the status of wrong use.
    /// @param port as every line names it
    Journal(const std::string& path, std::string port);

    /// @param unit may be empty
    /// @param waived the rules that the user waived for the value; empty for none
    void note(const std::string& unit, const Done& done, const std::string& waived = {});

    /// Notes that the work ended early.
    void noteEnd(const std::string& unit, const std::string& why);

    /// @returns why a line could not be written, in one line; empty if all were.
    const std::string& trouble() const { return trouble_; }

private:
    void append(const nlohmann::ordered_json& line);

    SharedFile file_;
    const std::string port_;
    std::string trouble_;
};

}  // namespace station::identity
