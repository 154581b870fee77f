#include "station/plan/Judge.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "station/Pattern.h"
#include "station/plan/Literal.h"

namespace station::plan {

namespace catalogue = protocol::catalogue;
using record::Measurement;

namespace {

std::string inDoubleQuotes(std::string_view text)
{
    return "\"" + std::string(text) + "\"";
}

std::string withUnit(std::string text, const std::string& unit)
{
    return unit.empty() ? text : text + " " + unit;
}

/// @returns "8700 to 8800 10 kHz", "at least 3".
std::string rangeText(const Expected& expected)
{
    const auto& [low, high] = std::pair(expected.minimum, expected.maximum);
    if (low && high) {
        return withUnit(numberText(*low) + " to " + numberText(*high), expected.unit);
    }
    return withUnit(low ? "at least " + numberText(*low) : "at most " + numberText(*high), expected.unit);
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

/// What one field is compared with, and what came of it.
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
            miss("none");
        }
        if (measurement_.passed && !field_.problem.empty()) {
            measurement_.passed = false;
            wanted_ = "what the catalogue allows (" + field_.problem + ")";
        }
        if (const std::string mask = catalogue::maskOf(field_); !mask.empty()) {
            measurement_.value = mask;
        }
        if (!measurement_.passed) {
            judgement.misses.push_back(expected_.name + " is " + catalogue::format(field_) + ", expected " + wanted_);
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
            miss("the whole text to match /" + *measurement_.limits.matches + "/");
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
    // A record that does not exist is answered without a byte, as an empty text would be.
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
        judgement.misses.push_back("the answer holds no " + expected.name);
    }
    judgement.measurements.push_back(std::move(measurement));
}

}  // namespace

std::string numberText(double number)
{
    char buffer[32];
    const auto end = std::to_chars(buffer, buffer + sizeof buffer, number, std::chars_format::general, 12).ptr;
    return {buffer, end};
}

bool isAtMost(double value, double limit)
{
    // Far more than scaling rounds off, far less than a step of a 32-bit field.
    constexpr double kTolerance = 1e-12;
    return value <= limit ||
           (std::isfinite(limit) && value - limit <= kTolerance * std::max(std::abs(value), std::abs(limit)));
}

std::string Judgement::reason() const
{
    std::string text;
    for (const std::string& miss : misses) {
        text += (text.empty() ? "" : "; ") + miss;
    }
    return text;
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
            wanted = answer == text ? "" : inDoubleQuotes(text);
        }
        if (expected.matches) {
            const std::string pattern = substituteInPattern(*expected.matches, variables);
            measurement.limits.matches = pattern;
            wanted = matches(answer, pattern) ? wanted : "the whole text to match /" + pattern + "/";
        }
    }
    measurement.passed = wanted.empty();
    Judgement judgement;
    if (prompt.secret) {
        measurement.value = std::string(answer.size(), catalogue::kMask);
        measurement.limits = {};
        if (!wanted.empty()) {
            judgement.misses.push_back("the operator's answer to " + prompt.id + " (masked) is not as expected");
        }
    } else if (!wanted.empty()) {
        const std::string said = prompt.kind == Prompt::Kind::kText ? inDoubleQuotes(answer) : answer;
        judgement.misses.push_back("the operator's answer to " + prompt.id + " is " + said + ", expected " + wanted);
    }
    judgement.measurements.push_back(std::move(measurement));
    return judgement;
}

}  // namespace station::plan
