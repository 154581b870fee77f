#pragma once

#include <chrono>
#include <string>

namespace station {

/// @returns the moment's date and time in UTC as strftime(3) writes it with `format`.
std::string formatUtc(std::chrono::system_clock::time_point time, const char* format);

/// The same in the zone of this machine.
std::string formatLocal(std::chrono::system_clock::time_point time, const char* format);

/// @returns the fraction of the moment's second, cut to `digits`, 1 to 9: ".123456" for 6.
std::string fractionOfSecond(std::chrono::system_clock::time_point time, int digits);

/// @returns the moment as ISO 8601 has it, "2026-11-21T12:00:00.123456Z" for 6 digits (1 to 9).
std::string isoUtc(std::chrono::system_clock::time_point time, int digits);

}  // namespace station
