#pragma once

#include <string>

#include "station/record/RunRecord.h"

namespace station::record {

/// @returns the run as CSV (RFC 4180, UTF-8, a header line): a line for each measurement, and one for each attempt
/// without any and each step without attempts.
/// Texts that a spreadsheet would take for a formula get an apostrophe in front.
std::string csvReport(const Run& run);

}  // namespace station::record
