#include "protocol/Quantity.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <utility>

#include "protocol/Text.h"

namespace protocol {

namespace {

/// Beyond these a number is easier to read with an exponent.
constexpr double kSmallestPlain = 1e-6;
constexpr double kLargestPlain = 1e15;

/// The one table of units. docs/plans.md lists them.
struct Unit {
    std::string_view name;
    /// The unit that all of its kind convert to, and its size in that unit.
    std::string_view base;
    double size = 1;
    /// The prefixes that people write before it.
    std::string_view prefixes = "";
    /// Of a level: the dB for a factor of ten, 20 for amplitudes and 10 for powers. Its size is that of 0 dB.
    double decibels = 0;
};

constexpr auto kUnits = std::to_array<Unit>({
    {"Hz", "Hz", 1, "mkMG"},
    {"s", "s", 1, "pnum"},
    {"min", "s", 60},
    {"h", "s", 3600},
    {"V", "V", 1, "numk"},
    {"dBV", "V", 1, "", 20},
    {"dBmV", "V", 1e-3, "", 20},
    {"dBuV", "V", 1e-6, "", 20},
    {"A", "A", 1, "pnumk"},
    {"W", "W", 1, "pnumkM"},
    {"dBW", "W", 1, "", 10},
    {"dBm", "W", 1e-3, "", 10},
    {"Ω", "Ω", 1, "mkMG"},
    {"Ohm", "Ω", 1, "mkMG"},
    {"F", "F", 1, "pnum"},
    {"H", "H", 1, "num"},
    {"m", "m", 1, "numck"},
    {"m/s", "m/s", 1},
    {"km/h", "m/s", 1 / 3.6},
    {"g", "g", 1, "mk"},
    {"B", "B", 1, "kMG"},
    {"bit/s", "bit/s", 1, "kMG"},
    {"dB", "dB", 1},
    {"%", "%", 1},
    {"°", "°", 1},
    {"°C", "°C", 1},
    {"K", "K", 1},
});

constexpr auto kPrefixes = std::to_array<std::pair<char, double>>(
    {{'p', 1e-12}, {'n', 1e-9}, {'u', 1e-6}, {'m', 1e-3}, {'c', 1e-2}, {'k', 1e3}, {'M', 1e6}, {'G', 1e9}});

std::string_view trimmed(std::string_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

/// @returns the text with "u" for each of the two characters that look like µ.
std::string withoutMu(std::string_view text)
{
    std::string plain(text);
    for (const std::string_view mu : {"\u00B5", "\u03BC"}) {
        for (auto at = plain.find(mu); at != std::string::npos; at = plain.find(mu)) {
            plain.replace(at, mu.size(), "u");
        }
    }
    return plain;
}

/// @returns the unit, with its prefix in the size.
std::optional<Unit> findUnit(std::string_view text)
{
    const std::string name = withoutMu(text);
    const auto whole = std::ranges::find(kUnits, name, &Unit::name);
    if (whole != kUnits.end()) {
        return *whole;
    }
    const auto prefix =
        std::ranges::find(kPrefixes, name.empty() ? '\0' : name.front(), &decltype(kPrefixes)::value_type::first);
    const auto unit = prefix == kPrefixes.end() ? kUnits.end() : std::ranges::find(kUnits, name.substr(1), &Unit::name);
    if (unit == kUnits.end() || unit->prefixes.find(prefix->first) == std::string_view::npos) {
        return std::nullopt;
    }
    Unit prefixed = *unit;
    prefixed.size *= prefix->second;
    return prefixed;
}

/// Reads a unit, or the size of a step in the catalogue's words, as in "10 kHz on FM".
std::optional<Unit> readUnit(std::string_view text)
{
    const auto step = parseQuantity(text);
    if (!step) {
        return findUnit(text);
    }
    auto unit = findUnit(step->unit.substr(0, step->unit.find(' ')));
    if (unit) {
        unit->size *= step->number;
    }
    return unit;
}

}  // namespace

bool isUnit(std::string_view text)
{
    return readUnit(text).has_value();
}

std::optional<Quantity> parseQuantity(std::string_view text)
{
    text = trimmed(text);
    const std::size_t sign = text.starts_with('-') ? 1 : 0;
    if (text.size() == sign || !isDigit(text[sign])) {
        return std::nullopt;
    }
    Quantity quantity;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, quantity.number, std::chars_format::fixed);
    if (result.ec == std::errc::result_out_of_range) {
        constexpr double kHuge = std::numeric_limits<double>::infinity();
        quantity.number = sign == 1 ? -kHuge : kHuge;
    }
    quantity.unit = trimmed({result.ptr, end});
    return quantity;
}

std::optional<double> parseFinite(std::string_view text)
{
    double number = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    const bool complete = result.ec == std::errc() && result.ptr == end && std::isfinite(number);
    return complete ? std::optional(number) : std::nullopt;
}

std::optional<double> parseSeconds(std::string_view text)
{
    const auto quantity = parseQuantity(text);
    if (!quantity || quantity->number < 0) {
        return std::nullopt;
    }
    return quantity->unit.empty() ? quantity->number : convert(quantity->number, quantity->unit, "s");
}

std::optional<double> convert(double number, std::string_view from, std::string_view to)
{
    if (from == to) {
        return number;
    }
    const auto given = readUnit(from);
    const auto wanted = readUnit(to);
    if (!given || !wanted || given->base != wanted->base) {
        return std::nullopt;
    }
    const bool alike = given->decibels == 0 && wanted->decibels == 0;
    double result = number;
    if (alike) {
        // One factor, because a product that is rounded twice shows more noise.
        result = number * (given->size / wanted->size);
    } else {
        const double base =
            given->decibels == 0 ? number * given->size : given->size * std::pow(10, number / given->decibels);
        result = wanted->decibels == 0 ? base / wanted->size : wanted->decibels * std::log10(base / wanted->size);
    }
    return std::isfinite(result) ? parseFinite(shortText(result)) : std::nullopt;
}

std::string toText(double number)
{
    const double size = std::abs(number);
    const bool plain = size == 0 || (size >= kSmallestPlain && size < kLargestPlain);
    std::array<char, 64> text{};
    const auto end = plain ? std::to_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed)
                           : std::to_chars(text.data(), text.data() + text.size(), number);
    return {text.data(), end.ptr};
}

std::string shortText(double number)
{
    return fmt::format("{:.12g}", number);
}

std::string withUnit(std::string_view value, std::string_view unit)
{
    if (unit.empty()) {
        return std::string(value);
    }
    return fmt::format("{}{}{}", value, isDigit(unit.front()) ? " × " : " ", printable(unit));
}

std::string toText(std::chrono::nanoseconds duration)
{
    const double seconds = std::chrono::duration<double>(duration).count();
    if (seconds < 0.9995) {
        return fmt::format("{:.{}f} ms", seconds * 1e3, seconds < 0.09995 ? 1 : 0);
    }
    if (seconds < 59.995) {
        return fmt::format("{:.2f} s", seconds);
    }
    const auto whole = std::chrono::round<std::chrono::seconds>(duration).count();
    return whole < 3600 ? fmt::format("{} min {} s", whole / 60, whole % 60)
                        : fmt::format("{} h {} min", whole / 3600, whole % 3600 / 60);
}

std::string secondsText(std::chrono::nanoseconds duration)
{
    return withUnit(shortText(std::chrono::duration<double>(duration).count()), "s");
}

}  // namespace protocol
