#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/Errors.h"
#include "station/identity/IdentityRecord.h"

namespace station::identity {

/// A value is not given to the unit on the line.
class NotGiven : public protocol::UserError
{
public:
    explicit NotGiven(const std::string& line) : UserError(line, protocol::kFailed) {}
};

/// By name of the record, normalised; without empty cells.
using Values = std::map<std::string, std::string, std::less<>>;

/// The values of one unit.
struct CsvRow {
    std::size_t line = 0;  ///< line 1 holds the names
    Values values;
};

struct CsvTable {
    std::string path;
    std::vector<CsvRow> rows;

    /// @returns the row with this factory serial number; nullptr for none.
    const CsvRow* find(const std::string& serial) const;
    /// The same; throws NotGiven if there is none.
    const CsvRow& rowOf(const std::string& serial) const;
};

/// Reads comma- or semicolon-separated values as spreadsheets write them: the first line holds the names of records;
/// quotes and a byte-order mark are understood, empty lines are skipped. Each row needs a value of a unique record, and
/// no such value may be in two rows, not even an address as CarPlay MAC in one and as Bluetooth address in the other.
/// Throws UserError, "FILE:LINE: …", for the first error in the file.
/// @param path of the file that the text comes from
CsvTable readCsv(std::string_view text, const std::string& path, Records records);

}  // namespace station::identity
