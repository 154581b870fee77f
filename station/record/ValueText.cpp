#include "station/record/ValueText.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "station/ClockText.h"

namespace station::record {

namespace {

/// Beyond these a number is easier to read with an exponent.
constexpr double kSmallestPlain = 1e-6;
constexpr double kLargestPlain = 1e15;

std::string fixed(double number, int digits)
{
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.*f", digits, number);
    return text.data();
}

/// @returns the number with twelve digits: a difference of decimal fractions then shows no binary noise.
double withoutNoise(double number)
{
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.12g", number);
    return std::strtod(text.data(), nullptr);
}

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

std::string toText(const Scalar& value)
{
    if (const auto* number = std::get_if<double>(&value)) {
        return toText(*number);
    }
    if (const auto* yes = std::get_if<bool>(&value)) {
        return *yes ? "yes" : "no";
    }
    return '"' + printable(std::get<std::string>(value)) + '"';
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
    std::string text;
    const auto add = [&text](const std::string& demand) { text += (text.empty() ? "" : ", ") + demand; };
    if (limits.equals) {
        const bool number = std::holds_alternative<double>(*limits.equals);
        add("exactly " + withUnit(toText(*limits.equals), number ? unit : ""));
    }
    if (limits.minimum && limits.maximum) {
        add(withUnit(toText(*limits.minimum) + " to " + toText(*limits.maximum), unit));
    } else if (limits.minimum) {
        add("at least " + withUnit(toText(*limits.minimum), unit));
    } else if (limits.maximum) {
        add("at most " + withUnit(toText(*limits.maximum), unit));
    }
    if (limits.matches) {
        add("whole text matching /" + printable(*limits.matches) + "/");
    }
    return text;
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
        return withUnit(toText(withoutNoise(difference)), measurement.unit) + where;
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
        return fixed(seconds * 1e3, seconds < 0.09995 ? 1 : 0) + " ms";
    }
    if (seconds < 59.995) {
        return fixed(seconds, 2) + " s";
    }
    const auto whole = std::chrono::round<std::chrono::seconds>(duration).count();
    if (whole < 3600) {
        return std::to_string(whole / 60) + " min " + std::to_string(whole % 60) + " s";
    }
    return std::to_string(whole / 3600) + " h " + std::to_string(whole % 3600 / 60) + " min";
}

std::string toText(std::chrono::system_clock::time_point time)
{
    return time == std::chrono::system_clock::time_point{} ? "not known" : formatUtc(time, "%Y-%m-%d %H:%M:%S UTC");
}

std::string isoText(std::chrono::system_clock::time_point time)
{
    return time == std::chrono::system_clock::time_point{} ? "" : isoUtc(time, 9);
}

const char* meaning(Verdict verdict)
{
    switch (verdict) {
        case Verdict::kPass:
            return "Everything was as the plan demands.";
        case Verdict::kFail:
            return "The unit answered, but a value is not what the plan demands.";
        case Verdict::kError:
            return "The line to the unit failed, or what the unit sent could not be understood.";
        case Verdict::kTimeout:
            return "The unit did not answer in time.";
        case Verdict::kAborted:
            return "The run was ended before it was through.";
        case Verdict::kSkipped:
            return "Not run.";
    }
    return "";
}

}  // namespace station::record
