#include "station/record/ValueText.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <array>
#include <charconv>
#include <cmath>
#include <vector>

#include "station/ClockText.h"

namespace station::record {

namespace {

/// Beyond these a number is easier to read with an exponent.
constexpr double kSmallestPlain = 1e-6;
constexpr double kLargestPlain = 1e15;

}  // namespace

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

std::string toText(const Scalar& value)
{
    if (const auto* number = std::get_if<double>(&value)) {
        return toText(*number);
    }
    if (const auto* yes = std::get_if<bool>(&value)) {
        return *yes ? "yes" : "no";
    }
    return fmt::format("\"{}\"", printable(std::get<std::string>(value)));
}

std::string withUnit(const std::string& value, const std::string& unit)
{
    if (unit.empty()) {
        return value;
    }
    const bool step = unit.front() >= '0' && unit.front() <= '9';
    return value + (step ? " × " : " ") + printable(unit);
}

std::string toText(const Limits& limits, const std::string& unit)
{
    std::vector<std::string> demands;
    if (limits.equals) {
        const bool number = std::holds_alternative<double>(*limits.equals);
        demands.push_back("exactly " + withUnit(toText(*limits.equals), number ? unit : ""));
    }
    if (limits.minimum && limits.maximum) {
        demands.push_back(withUnit(fmt::format("{} to {}", toText(*limits.minimum), toText(*limits.maximum)), unit));
    } else if (limits.minimum) {
        demands.push_back("at least " + withUnit(toText(*limits.minimum), unit));
    } else if (limits.maximum) {
        demands.push_back("at most " + withUnit(toText(*limits.maximum), unit));
    }
    if (limits.matches) {
        demands.push_back(fmt::format("whole text matching /{}/", printable(*limits.matches)));
    }
    return fmt::format("{}", fmt::join(demands, ", "));
}

bool any(const Limits& limits)
{
    return limits.minimum || limits.maximum || limits.equals || limits.matches;
}

std::string miss(const Measurement& measurement)
{
    const auto* number = std::get_if<double>(&measurement.value);
    if (number == nullptr || !std::isfinite(*number)) {
        return {};
    }
    const auto by = [&measurement](double difference, const char* where) {
        return withUnit(shortText(difference), measurement.unit) + where;
    };
    const Limits& limits = measurement.limits;
    if (limits.minimum && *number < *limits.minimum) {
        return by(*limits.minimum - *number, " below the minimum");
    }
    if (limits.maximum && *number > *limits.maximum) {
        return by(*number - *limits.maximum, " above the maximum");
    }
    return {};
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

std::string toText(std::chrono::system_clock::time_point time)
{
    return time == std::chrono::system_clock::time_point{} ? "not known" : formatUtc(time, "%Y-%m-%d %H:%M:%S UTC");
}

std::string isoText(std::chrono::system_clock::time_point time)
{
    return time == std::chrono::system_clock::time_point{} ? "" : isoUtc(time, 9);
}

}  // namespace station::record
