#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

/// Numbers and times with their units, as people write and read them, in all host code.
namespace protocol {

/// A number and what stands behind it: "87.5" and "MHz".
struct Quantity {
    double number = 0;
    std::string_view unit;
};

/// Reads a plain decimal number and the unit behind it, if any: "87.5MHz", "-3 V". Takes no exponent, "inf" or "nan". A
/// number that a double cannot hold becomes infinite.
std::optional<Quantity> parseQuantity(std::string_view text);

/// Converts a number between units of the one table, whose prefixes are p, n, µ (u), m, c, k, M and G where people use
/// them. A unit that begins with a number may end with words: 94.7 in "MHz" is 9470 in "10 kHz on FM". Levels such as
/// dBµV convert to and from the unit that they compare with.
/// @returns nothing if the units do not measure the same, or if the result is not finite. Equal texts need no
/// conversion.
std::optional<double> convert(double number, std::string_view from, std::string_view to);

/// @returns whether the one table has the unit.
bool isUnit(std::string_view text);

/// Reads a finite number, perhaps with an exponent, and nothing else.
std::optional<double> parseFinite(std::string_view text);

/// Reads a time of at least 0 in seconds: a plain number of seconds, or a number with ms, s, min or h ("500ms", "8 h").
std::optional<double> parseSeconds(std::string_view text);

/// @returns a number in full precision; with an exponent only where digits would be unreadable.
std::string toText(double number);

/// @returns a number with twelve digits at most, "87.5": the noise of binary fractions does not show.
std::string shortText(double number);

/// @returns a value with its unit: "94.7 MHz"; "8750 × 10 kHz" if the unit begins with a number.
std::string withUnit(std::string_view value, std::string_view unit);

/// @returns a measured time, rounded: "12.3 ms", "4.56 s", "3 min 20 s".
std::string toText(std::chrono::nanoseconds duration);

/// @returns a time as a plan or an option gives it: "0.05 s".
std::string secondsText(std::chrono::nanoseconds duration);

}  // namespace protocol
