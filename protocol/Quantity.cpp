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

constexpr auto kTimeUnits =
    std::to_array<std::pair<std::string_view, double>>({{"", 1}, {"s", 1}, {"ms", 1e-3}, {"min", 60}, {"h", 3600}});

std::string_view trimmed(std::string_view text)
{
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

}  // namespace

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
    const auto unit = std::ranges::find(kTimeUnits, quantity->unit, &decltype(kTimeUnits)::value_type::first);
    return unit == kTimeUnits.end() ? std::nullopt : std::optional(quantity->number * unit->second);
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
