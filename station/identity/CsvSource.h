#pragma once

#include <cstddef>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "station/identity/Record.h"

namespace station::identity {

/// A file of values that cannot be used: one line, "FILE:LINE: what is wrong".
class CsvError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// By name of the record, normalised; without those whose cell is empty.
using Values = std::map<std::string, std::string, std::less<>>;

/// The values of one unit.
struct CsvRow {
    std::size_t line = 0;  ///< the first is 1, and holds the names
    Values values;
};

struct CsvTable {
    std::string path;
    std::vector<CsvRow> rows;
};

/// Takes `text` for a table of comma- or semicolon-separated values, as spreadsheets write it: the first line holds
/// names of records, quotes and a byte-order mark are understood, empty lines passed over. Each row needs a value of a
/// record that is unique, and none of those may stand in two rows. All rows are checked before one is used. Throws
/// CsvError. Addresses of whatever kind count as one: none may be a CarPlay MAC in one row and a Bluetooth address in
/// another.
/// @param path of the file that the text comes from.
CsvTable readCsv(std::string_view text, const std::string& path, Records records);

/// @returns those of the values that no two units may share.
Values uniqueValues(const Values& values, Records records);

}  // namespace station::identity
