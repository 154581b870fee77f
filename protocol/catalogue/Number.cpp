#include "protocol/catalogue/Number.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "protocol/Text.h"
#include "protocol/catalogue/Codec.h"

namespace protocol::catalogue {

namespace {

using Limits = std::numeric_limits<std::int64_t>;

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

std::string_view withoutBlanks(std::string_view text)
{
    const auto begin = std::min(text.find_first_not_of(' '), text.size());
    text.remove_prefix(begin);
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

/// A number with something behind it: "87.5" and "MHz".
struct Measured {
    double number = 0;
    std::string_view unit;
};

/// @returns no unit when `text` does not begin with a plain decimal number: no exponent, no "inf", no "nan".
Measured parseMeasured(std::string_view text)
{
    Measured measured;
    const std::size_t sign = text.starts_with('-') ? 1 : 0;
    if (text.size() == sign || !isDigit(text[sign])) {
        return measured;
    }
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, measured.number, std::chars_format::fixed);
    if (result.ec == std::errc::result_out_of_range) {
        const double huge = std::numeric_limits<double>::infinity();
        measured.number = sign == 1 ? -huge : huge;
    }
    measured.unit = withoutBlanks({result.ptr, end});
    return measured;
}

[[noreturn]] void refuse(const Field& field, std::string_view text)
{
    std::vector<std::string_view> names;
    std::ranges::transform(field.choices, std::back_inserter(names), &Choice::name);
    throw UserError(fmt::format("{}: expected {}{}, got {}{}", field.name, describe(field),
                                field.example.empty() ? "" : fmt::format(", as in {}", field.example), inQuotes(text),
                                didYouMean(text, names)));
}

std::int64_t parseScaled(const Field& field, const Scale& scale, std::string_view text, double number)
{
    const double steps = number / scale.factor;
    const double whole = std::round(steps);
    if (whole < static_cast<double>(field.minimum) || whole > static_cast<double>(field.maximum)) {
        throw UserError(fmt::format("{}: {} is out of range {} to {} {}", field.name, text,
                                    scaled(field.minimum, scale.factor), scaled(field.maximum, scale.factor),
                                    scale.unit));
    }
    // A written decimal fraction and a product of binary ones differ by less than this.
    if (std::abs(steps - whole) > 1e-4) {
        throw UserError(fmt::format("{}: expected a multiple of {} {}, got {}", field.name, scaled(1, scale.factor),
                                    scale.unit, text));
    }
    return static_cast<std::int64_t>(whole);
}

}  // namespace

bool parseInteger(std::string_view text, std::int64_t& number)
{
    const bool negative = text.starts_with('-');
    std::string_view digits = text.substr(negative ? 1 : 0);
    int base = 10;
    if (digits.starts_with("0x") || digits.starts_with("0X")) {
        digits.remove_prefix(2);
        base = 16;
    }
    std::uint64_t magnitude = 0;
    const char* end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, magnitude, base);
    if (digits.empty() || result.ptr != end || result.ec == std::errc::invalid_argument) {
        return false;
    }
    constexpr auto kMost = static_cast<std::uint64_t>(Limits::max());
    if (result.ec == std::errc::result_out_of_range || magnitude > kMost) {
        number = negative ? Limits::min() : Limits::max();
    } else {
        number = negative ? -static_cast<std::int64_t>(magnitude) : static_cast<std::int64_t>(magnitude);
    }
    return true;
}

std::string numberProblem(const Field& field, std::int64_t number)
{
    const bool named = std::ranges::any_of(field.choices, [&](const Choice& choice) { return choice.value == number; });
    if (named) {
        return {};
    }
    if (number < field.minimum || number > field.maximum) {
        return fmt::format("{} is out of range {}", number, describeRange(field));
    }
    return field.open || field.choices.empty() ? "" : fmt::format("{} is none of {}", number, describeChoices(field));
}

std::int64_t parseNumber(const Field& field, std::string_view text)
{
    text = withoutBlanks(text);
    const auto choice = std::ranges::find(field.choices, text, &Choice::name);
    if (choice != field.choices.end()) {
        return choice->value;
    }

    std::int64_t number = 0;
    if (parseInteger(text, number)) {
        if (const std::string problem = numberProblem(field, number); !problem.empty()) {
            // As the user wrote it: 0x100, not 256, and a huge number in full.
            throw UserError(fmt::format("{}: {}{}", field.name, text, problem.substr(problem.find(' '))));
        }
        return number;
    }

    const Measured measured = parseMeasured(text);
    if (measured.unit.empty()) {
        refuse(field, text);
    }
    if (field.scale && measured.unit == field.scale->unit) {
        return parseScaled(field, *field.scale, text, measured.number);
    }
    if (measured.unit == field.unit) {
        return parseScaled(field, {1, field.unit, {}}, text, measured.number);
    }
    refuse(field, text);
}

}  // namespace protocol::catalogue
