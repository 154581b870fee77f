#include "station/plan/Judge.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "protocol/Errors.h"
#include "protocol/Text.h"
#include "protocol/catalogue/HexBytes.h"
#include "station/Pattern.h"
#include "station/record/ValueText.h"

namespace station::plan {

namespace catalogue = protocol::catalogue;
using record::Measurement;

namespace {

std::string upper(std::string text)
{
    std::ranges::transform(text, text.begin(),
                           [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    return text;
}

/// @returns "8700 to 8800 10 kHz", "at least 3".
std::string rangeText(const Expected& expected)
{
    const auto& [low, high] = std::pair(expected.minimum, expected.maximum);
    if (low && high) {
        return record::withUnit(fmt::format("{} to {}", record::shortText(*low), record::shortText(*high)),
                                expected.unit);
    }
    return record::withUnit(low ? "at least " + record::shortText(*low) : "at most " + record::shortText(*high),
                            expected.unit);
}

bool inRange(const Expected& expected, double value)
{
    return (!expected.minimum || isAtMost(*expected.minimum, value)) &&
           (!expected.maximum || isAtMost(value, *expected.maximum));
}

/// Puts the variables into a regular expression, where they stand for themselves.
std::string substituteInPattern(const std::string& pattern, const Variables& variables)
{
    Variables plain;
    for (const auto& [name, value] : variables) {
        plain[name] = literalPattern(value);
    }
    return substitute(pattern, plain);
}

/// A pattern may hold a secret as it is.
std::string shownPattern(const std::string& pattern, bool secret)
{
    return secret ? "(masked)" : pattern;
}

record::Scalar scalarOf(const catalogue::DecodedField& field, bool asNumber, double factor)
{
    if (const auto* number = std::get_if<std::int64_t>(&field.value)) {
        if (!asNumber && !field.choice().empty()) {
            return std::string(field.choice());
        }
        return static_cast<double>(*number) * factor;
    }
    return written(field);
}

/// Compares one field.
class FieldJudge
{
public:
    FieldJudge(const Expected& expected, const catalogue::DecodedField& field, const Variables& variables)
        : expected_(expected), field_(field), variables_(variables)
    {
    }

    void judge(Judgement& judgement)
    {
        const bool scaled = expected_.scaled && field_.field->scale.has_value();
        const bool ranged = expected_.minimum || expected_.maximum;
        const double factor = scaled ? field_.field->scale->factor : 1.0;
        measurement_.name = expected_.name;
        measurement_.unit = expected_.unit.empty() ? std::string(field_.field->unit) : expected_.unit;
        measurement_.value = scalarOf(field_, ranged, factor);
        measurement_.limits.minimum = expected_.minimum;
        measurement_.limits.maximum = expected_.maximum;

        if (ranged) {
            compareRange(factor);
        }
        if (expected_.equals) {
            compareValue(factor);
        }
        if (expected_.matches) {
            comparePattern();
        }
        if (expected_.present && !*expected_.present) {
            miss("no value");
        }
        if (measurement_.passed && !field_.problem.empty()) {
            measurement_.passed = false;
            wanted_ = fmt::format("a value that the catalogue allows ({})", field_.problem);
        }
        if (const std::string mask = catalogue::maskOf(field_); !mask.empty()) {
            measurement_.value = mask;
        }
        if (!measurement_.passed) {
            judgement.misses.push_back(
                fmt::format("{}: expected {}, got {}", expected_.name, wanted_, catalogue::format(field_)));
        }
        judgement.measurements.push_back(std::move(measurement_));
    }

private:
    void miss(const std::string& wanted)
    {
        measurement_.passed = false;
        wanted_ += (wanted_.empty() ? "" : " and ") + wanted;
    }

    void compareRange(double factor)
    {
        const auto* number = std::get_if<std::int64_t>(&field_.value);
        if (number == nullptr || !inRange(expected_, static_cast<double>(*number) * factor)) {
            miss(rangeText(expected_));
        }
    }

    void compareValue(double factor)
    {
        const std::string text = substitute(*expected_.equals, variables_);
        const catalogue::DecodedField wanted{field_.field, literal(*field_.field, text), {}};
        const std::string mask = catalogue::maskOf(wanted);
        measurement_.limits.equals =
            mask.empty() ? scalarOf(wanted, std::holds_alternative<double>(measurement_.value), factor) : mask;
        if (!same(*field_.field, field_.value, wanted.value)) {
            miss(catalogue::format(wanted));
        }
    }

    void comparePattern()
    {
        const std::string pattern = substituteInPattern(*expected_.matches, variables_);
        measurement_.limits.matches = shownPattern(pattern, field_.field->secret);
        if (!matches(written(field_), pattern)) {
            miss(fmt::format("a text that matches /{}/", *measurement_.limits.matches));
        }
    }

    const Expected& expected_;
    const catalogue::DecodedField& field_;
    const Variables& variables_;
    Measurement measurement_;
    std::string wanted_;
};

void judgeMissing(const Expected& expected, const Variables& variables, Judgement& judgement)
{
    if (expected.present && !*expected.present) {
        return;
    }
    // The unit answers for a missing record without a byte, as for an empty text.
    const bool empty = expected.equals && substitute(*expected.equals, variables).empty();
    Measurement measurement;
    measurement.name = expected.name;
    measurement.value = std::string();
    measurement.unit = expected.unit;
    const bool secret = expected.field != nullptr && expected.field->secret;
    measurement.limits = {expected.minimum, expected.maximum, std::nullopt, std::nullopt};
    if (expected.matches) {
        measurement.limits.matches = shownPattern(*expected.matches, secret);
    }
    if (expected.equals) {
        const std::string wanted = substitute(*expected.equals, variables);
        measurement.limits.equals = secret ? std::string(wanted.size(), catalogue::kMask) : wanted;
    }
    measurement.passed = empty;
    if (!empty) {
        judgement.misses.push_back(fmt::format("{}: the answer lacks this field", expected.name));
    }
    judgement.measurements.push_back(std::move(measurement));
}

}  // namespace

bool isAtMost(double value, double limit)
{
    // Far more than scaling rounds off, far less than a step of a 32-bit field.
    constexpr double kTolerance = 1e-12;
    return value <= limit ||
           (std::isfinite(limit) && value - limit <= kTolerance * std::max(std::abs(value), std::abs(limit)));
}

std::string Judgement::reason() const
{
    return fmt::format("{}", fmt::join(misses, "; "));
}

Judgement judge(std::span<const Expected> expected, std::span<const catalogue::DecodedField> fields,
                const Variables& variables)
{
    Judgement judgement;
    for (const auto& field : fields) {
        const auto found = std::ranges::find(expected, field.field->name, &Expected::name);
        Expected nothing;
        nothing.name = field.field->name;
        FieldJudge(found == expected.end() ? nothing : *found, field, variables).judge(judgement);
    }
    for (const Expected& each : expected) {
        if (std::ranges::none_of(fields, [&](const auto& field) { return field.field->name == each.name; })) {
            judgeMissing(each, variables, judgement);
        }
    }
    return judgement;
}

Judgement judge(const Prompt& prompt, const std::string& answer, const Variables& variables)
{
    Measurement measurement;
    measurement.name = prompt.id;
    measurement.value = answer;
    const Expected expected = prompt.expect.value_or(Expected{});
    measurement.unit = expected.unit;
    std::string wanted;
    if (prompt.kind == Prompt::Kind::kNumber) {
        double number = 0;
        std::from_chars(answer.data(), answer.data() + answer.size(), number);
        measurement.value = number;
        measurement.limits.minimum = expected.minimum;
        measurement.limits.maximum = expected.maximum;
        if (!inRange(expected, number)) {
            wanted = rangeText(expected);
        }
    } else if (prompt.kind == Prompt::Kind::kYesNo) {
        measurement.value = answer == "yes";
        if (expected.equals) {
            measurement.limits.equals = *expected.equals == "yes";
            wanted = answer == *expected.equals ? "" : *expected.equals;
        }
    } else {
        if (expected.equals) {
            const std::string text = substitute(*expected.equals, variables);
            measurement.limits.equals = text;
            wanted = answer == text ? "" : fmt::format("\"{}\"", text);
        }
        if (expected.matches) {
            const std::string pattern = substituteInPattern(*expected.matches, variables);
            measurement.limits.matches = pattern;
            wanted = matches(answer, pattern) ? wanted : fmt::format("a text that matches /{}/", pattern);
        }
    }
    measurement.passed = wanted.empty();
    Judgement judgement;
    if (prompt.secret) {
        measurement.value = std::string(answer.size(), catalogue::kMask);
        measurement.limits = {};
        if (!wanted.empty()) {
            judgement.misses.push_back(fmt::format("{}: expected another answer of the operator (masked)", prompt.id));
        }
    } else if (!wanted.empty()) {
        const std::string said = prompt.kind == Prompt::Kind::kText ? fmt::format("\"{}\"", answer) : answer;
        judgement.misses.push_back(fmt::format("{}: expected {} from the operator, got {}", prompt.id, wanted, said));
    }
    judgement.measurements.push_back(std::move(measurement));
    return judgement;
}

catalogue::Value literal(const catalogue::Field& field, const std::string& written)
{
    if (field.type == catalogue::Type::kRecords) {
        throw protocol::UserError("expected the count of the records, got the records");
    }
    if (written.empty() && field.type == catalogue::Type::kBytes) {
        return std::vector<std::uint8_t>();
    }
    if (written.empty() && catalogue::sizeOf(field.type) == 0) {
        return std::string();
    }
    // A command that has this field only: the codec knows all ways to write a value.
    catalogue::Field only = field;
    only.optional = false;
    catalogue::Command command;
    command.key = "value";
    command.params = std::span(&only, 1);
    const std::array<catalogue::Argument, 1> argument{{{std::string(field.name), written}}};
    const protocol::Frame frame = catalogue::encode(command, argument);

    catalogue::Group group;
    group.key = "a";
    group.commands = std::span(&command, 1);
    auto decoded = catalogue::decodeRequest(std::span(&group, 1), frame);
    if (decoded.fields.empty()) {
        throw protocol::UserError(
            fmt::format("{}: expected a value of the field, got {}", field.name, protocol::inQuotes(written)));
    }
    return std::move(decoded.fields.front().value);
}

bool same(const catalogue::Field& field, const catalogue::Value& one, const catalogue::Value& other)
{
    if (field.type == catalogue::Type::kHexText) {
        const auto* left = std::get_if<std::string>(&one);
        const auto* right = std::get_if<std::string>(&other);
        return left != nullptr && right != nullptr && upper(*left) == upper(*right);
    }
    return std::visit(
        [&other](const auto& left) {
            using Type = std::decay_t<decltype(left)>;
            if constexpr (std::is_same_v<Type, std::vector<catalogue::Record>>) {
                return false;
            } else {
                const auto* right = std::get_if<Type>(&other);
                return right != nullptr && left == *right;
            }
        },
        one);
}

std::string written(const catalogue::DecodedField& field)
{
    if (const auto* number = std::get_if<std::int64_t>(&field.value)) {
        return std::to_string(*number);
    }
    if (const auto* text = std::get_if<std::string>(&field.value)) {
        return *text;
    }
    if (const auto* bytes = std::get_if<std::vector<std::uint8_t>>(&field.value)) {
        return catalogue::formatHexBytes(*bytes);
    }
    return catalogue::format(field);
}

}  // namespace station::plan
