#include "station/record/ValueText.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cmath>
#include <vector>

#include "station/ClockText.h"

namespace station::record {

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

std::string toText(const Scalar& value, const std::string& unit)
{
    return withUnit(toText(value), std::holds_alternative<double>(value) ? unit : "");
}

std::string toText(const Limits& limits, const std::string& unit)
{
    std::vector<std::string> demands;
    if (limits.equals) {
        demands.push_back(toText(*limits.equals, unit));
    }
    if (limits.minimum && limits.maximum) {
        demands.push_back(withUnit(fmt::format("{} to {}", toText(*limits.minimum), toText(*limits.maximum)), unit));
    } else if (limits.minimum) {
        demands.push_back("at least " + withUnit(toText(*limits.minimum), unit));
    } else if (limits.maximum) {
        demands.push_back("at most " + withUnit(toText(*limits.maximum), unit));
    }
    if (limits.matches) {
        demands.push_back(fmt::format("a text that matches /{}/", printable(*limits.matches)));
    }
    return fmt::format("{}", fmt::join(demands, " and "));
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

std::string toText(std::chrono::system_clock::time_point time)
{
    return time == std::chrono::system_clock::time_point{} ? "not known" : formatUtc(time, "%Y-%m-%d %H:%M:%S UTC");
}

std::string isoText(std::chrono::system_clock::time_point time)
{
    return time == std::chrono::system_clock::time_point{} ? "" : isoUtc(time, 9);
}

}  // namespace station::record
