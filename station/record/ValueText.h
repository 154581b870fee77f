#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "protocol/Text.h"
#include "station/record/RunRecord.h"

/// How what stands in a record is written for people.
namespace station::record {

using protocol::printable;

/// @returns a number without an exponent where that is readable, with as many digits as tell it from its neighbours.
std::string toText(double number);

/// @returns a number, "yes" or "no", or the printable text in quotes.
std::string toText(const Scalar& value);

/// @returns a value with its unit: "94.7 MHz"; "8750 × 10 kHz" when the unit begins with a number.
std::string withUnit(const std::string& value, const std::string& unit);

/// @returns what was demanded: "8700 to 10800 kHz", "at least 3 V", "exactly "HeadUnit"", "whole text matching
/// /KYR.*/"; empty for no limits.
std::string toText(const Limits& limits, const std::string& unit);

/// @returns whether anything is demanded.
bool any(const Limits& limits);

/// @returns by how much a number misses its limits, "7710 kHz below the minimum"; empty when it does not, or when it is
/// no number.
std::string miss(const Measurement& measurement);

/// @returns "12.3 ms", "4.56 s", "3 min 20 s".
std::string toText(std::chrono::nanoseconds duration);

/// @returns "2026-11-21 14:05:08 UTC"; "not known" for the epoch, which stands for that.
std::string toText(std::chrono::system_clock::time_point time);

/// @returns "2026-11-21T14:05:08.123456789Z", as record.json has it; empty for the epoch.
std::string isoText(std::chrono::system_clock::time_point time);

/// @returns what a verdict means, in words for somebody who sees one for the first time.
const char* meaning(Verdict verdict);

}  // namespace station::record
