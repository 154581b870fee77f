#include "protocol/catalogue/Number.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "protocol/Quantity.h"
#include "protocol/Text.h"
#include "protocol/catalogue/Codec.h"

namespace protocol::catalogue {

namespace {

using Limits = std::numeric_limits<std::int64_t>;

std::string_view withoutBlanks(std::string_view text)
{
    const auto begin = std::min(text.find_first_not_of(' '), text.size());
    text.remove_prefix(begin);
    return text.substr(0, text.find_last_not_of(' ') + 1);
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
        throw UserError(fmt::format("{}: expected {} to {} {}, got {}", field.name,
                                    shortText(static_cast<double>(field.minimum) * scale.factor),
                                    shortText(static_cast<double>(field.maximum) * scale.factor), scale.unit, text));
    }
    // A written decimal fraction and a product of binary ones differ by less than this.
    if (std::abs(steps - whole) > 1e-4) {
        throw UserError(fmt::format("{}: expected a multiple of {} {}, got {}", field.name, shortText(scale.factor),
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

namespace {

/// @returns what `field` expects in place of `number`; empty if the number is good.
std::string expectation(const Field& field, std::int64_t number)
{
    const bool named = std::ranges::any_of(field.choices, [&](const Choice& choice) { return choice.value == number; });
    if (named) {
        return {};
    }
    if (number < field.minimum || number > field.maximum) {
        return "expected " + describeRange(field);
    }
    return field.open || field.choices.empty() ? "" : "expected " + describeChoices(field);
}

}  // namespace

std::string numberProblem(const Field& field, std::int64_t number)
{
    const std::string expected = expectation(field, number);
    return expected.empty() ? "" : fmt::format("{}, got {}", expected, number);
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
        if (const std::string expected = expectation(field, number); !expected.empty()) {
            // As the user wrote it: 0x100, not 256, and a huge number in full.
            throw UserError(fmt::format("{}: {}, got {}", field.name, expected, text));
        }
        return number;
    }

    const auto quantity = parseQuantity(text);
    if (!quantity || quantity->unit.empty()) {
        refuse(field, text);
    }
    if (const auto scaled = field.scale ? convert(quantity->number, quantity->unit, field.scale->unit) : std::nullopt) {
        return parseScaled(field, *field.scale, text, *scaled);
    }
    if (const auto plain = convert(quantity->number, quantity->unit, field.unit)) {
        return parseScaled(field, {1, field.unit, {}}, text, *plain);
    }
    refuse(field, text);
}

}  // namespace protocol::catalogue
