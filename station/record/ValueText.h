#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "protocol/Quantity.h"
#include "protocol/Text.h"
#include "station/record/RunRecord.h"

/// Values, limits and times of a run record as people read them.
namespace station::record {

using protocol::printable;
using protocol::shortText;
using protocol::toText;
using protocol::withUnit;

/// @returns a number, "yes" or "no", or the printable text in quotes.
std::string toText(const Scalar& value);

/// @returns the same, a number with its unit.
std::string toText(const Scalar& value, const std::string& unit);

/// @returns the demand: "8700 to 10800 kHz", "at least 3 V", ""HeadUnit"", "a text that matches /KYR.*/"; empty for no
/// limits.
std::string toText(const Limits& limits, const std::string& unit);

/// @returns whether any limit is set.
bool any(const Limits& limits);

/// @returns by how much a number misses its limits, "7710 kHz below the minimum"; empty for a hit, and for a value that
/// is not a number.
std::string miss(const Measurement& measurement);

/// @returns "2026-11-21 14:05:08 UTC"; "not known" for the epoch.
std::string toText(std::chrono::system_clock::time_point time);

/// @returns "2026-11-21T14:05:08.123456789Z", the form in record.json; empty for the epoch.
std::string isoText(std::chrono::system_clock::time_point time);

}  // namespace station::record
