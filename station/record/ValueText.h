#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "protocol/Text.h"
#include "station/record/RunRecord.h"

/// Values, limits and times of a run record as people read them.
namespace station::record {

using protocol::printable;

/// @returns a number with all its digits, without an exponent if that is readable.
std::string toText(double number);

/// @returns a number with twelve digits at most, "87.5": the noise of binary fractions does not show.
std::string shortText(double number);

/// @returns a number, "yes" or "no", or the printable text in quotes.
std::string toText(const Scalar& value);

/// @returns a value with its unit: "94.7 MHz"; "8750 × 10 kHz" when the unit begins with a number.
std::string withUnit(const std::string& value, const std::string& unit);

/// @returns the demand: "8700 to 10800 kHz", "at least 3 V", "exactly "HeadUnit"", "whole text matching
/// /KYR.*/"; empty for no limits.
std::string toText(const Limits& limits, const std::string& unit);

/// @returns whether any limit is set.
bool any(const Limits& limits);

/// @returns by how much a number misses its limits, "7710 kHz below the minimum"; empty for a hit, and for a value that
/// is not a number.
std::string miss(const Measurement& measurement);

/// @returns "12.3 ms", "4.56 s", "3 min 20 s".
std::string toText(std::chrono::nanoseconds duration);

/// @returns "2026-11-21 14:05:08 UTC"; "not known" for the epoch.
std::string toText(std::chrono::system_clock::time_point time);

/// @returns "2026-11-21T14:05:08.123456789Z", the form in record.json; empty for the epoch.
std::string isoText(std::chrono::system_clock::time_point time);

}  // namespace station::record
