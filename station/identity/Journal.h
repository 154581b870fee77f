#pragma once

#include <string>

#include "station/identity/Provision.h"

namespace station::identity {

/// What was done to units, for whoever asks later: one JSON object a line with "schema", "time", "port", "unit",
/// "record", "old", "new" and "result", and "waived" where a rule was waived. Lines of several stations do not mix, and
/// are on the disk when `note` returns. What was left unfinished, on a full disk for one, stays a line of its own. As
/// it holds passwords, a new one is for its owner only.
class Journal
{
public:
    /// Opens or creates the file, its folder included. Throws std::system_error with a text that names it.
    explicit Journal(const std::string& path);
    ~Journal();
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    /// Throws std::system_error.
    /// @param unit may be empty.
    /// @param waived what the user waived for the value, in words; empty for nothing
    void note(const std::string& port, const std::string& unit, const Done& done, const std::string& waived = {});

    /// Notes that a run ended early; `why` in one line.
    void noteEnd(const std::string& port, const std::string& unit, const std::string& why);

private:
    void append(std::string line);
    bool endsWithinALine() const;
    [[noreturn]] void fail() const;

    std::string path_;
    int descriptor_;
};

}  // namespace station::identity
