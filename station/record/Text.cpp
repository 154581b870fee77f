#include "station/record/Text.h"

#include <glib.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "station/ClockText.h"

namespace station::record {

namespace {

constexpr gunichar kReplacement = 0xFFFD;

/// Beyond these a number is easier to read with an exponent.
constexpr double kSmallestPlain = 1e-6;
constexpr double kLargestPlain = 1e15;

bool turnsText(gunichar character)
{
    return (character >= 0x202A && character <= 0x202E) || (character >= 0x2066 && character <= 0x2069) ||
           character == 0x200E || character == 0x200F || character == 0x061C;
}

gunichar shown(gunichar character)
{
    if (character < 0x20) {
        return 0x2400 + character;
    }
    if (character == 0x7F) {
        return 0x2421;
    }
    const bool breaksLine = character == 0x2028 || character == 0x2029;
    const bool noCharacter = (character & 0xFFFE) == 0xFFFE || (character >= 0xFDD0 && character <= 0xFDEF);
    const bool control = character >= 0x80 && character < 0xA0;
    return breaksLine || noCharacter || control || turnsText(character) ? kReplacement : character;
}

void append(std::string& out, gunichar character)
{
    std::array<char, 6> bytes{};
    const int size = g_unichar_to_utf8(character, bytes.data());
    out.append(bytes.data(), static_cast<std::size_t>(size));
}

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

std::string printable(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        // A zero byte is a character too, but GLib takes it for the end.
        const gunichar character =
            text.front() == '\0' ? 0 : g_utf8_get_char_validated(text.data(), static_cast<gssize>(text.size()));
        const bool valid = character != static_cast<gunichar>(-1) && character != static_cast<gunichar>(-2);
        append(out, valid ? shown(character) : kReplacement);
        text.remove_prefix(valid && character != 0 ? static_cast<std::size_t>(g_unichar_to_utf8(character, nullptr))
                                                   : 1);
    }
    return out;
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
        add("text matching /" + printable(*limits.matches) + "/");
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

std::string count(std::size_t number, const std::string& noun)
{
    return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

}  // namespace station::record
