#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace station {

/// @returns the cells of a line. Throws protocol::UserError, without the place, for a line that is not CSV.
std::vector<std::string> csvCells(std::string_view line, char delimiter = ',');

/// Passes the cells of each line that is not blank, and the line's number, to `take`. A byte order mark and CR at the
/// end of a line are left out. The first line decides between ',' and ';', which spreadsheets write where the comma
/// separates decimals. A cell may not hold a line end. Throws protocol::UserError "path:line: …" for a line that is not
/// CSV, and for a UserError of `take`.
void readCsvLines(std::string_view text, const std::string& path,
                  const std::function<void(std::size_t line, const std::vector<std::string>& cells)>& take);

}  // namespace station
