#include "station/plan/Judge.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <nlohmann/json.hpp>

#include "protocol/Errors.h"
#include "protocol/Quantity.h"
#include "protocol/Text.h"
#include "protocol/catalogue/HexBytes.h"
#include "station/Pattern.h"
#include "station/plan/Limits.h"
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
        // Without the noise of the binary fraction.
        return protocol::parseFinite(protocol::shortText(static_cast<double>(*number) * factor)).value_or(0);
    }
    return written(field);
}

/// @returns "speed: expected 0, got 70", with the limits and the value as every report shows them.
std::string missText(const Measurement& measurement, bool secret)
{
    return fmt::format("{}: expected {}, got {}{}", measurement.name,
                       record::toText(measurement.limits, measurement.unit),
                       record::toText(measurement.value, measurement.unit), secret ? " (masked)" : "");
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
        const auto& scale = field_.field->scale;
        const bool ranged = expected_.minimum || expected_.maximum;
        // Limits in the field's own unit keep its value in that unit.
        const bool scaled = scale && (expected_.scaled || !ranged);
        const double factor = scaled ? scale->factor : 1.0;
        measurement_.name = expected_.name;
        measurement_.unit = expected_.unit.empty() ? std::string(field_.field->unit) : expected_.unit;
        if (scaled && !expected_.scaled) {
            measurement_.unit = unitOf(*scale);
        }
        measurement_.value = scalarOf(field_, ranged, factor);
        measurement_.limits.minimum = expected_.minimum;
        measurement_.limits.maximum = expected_.maximum;

        if (ranged) {
            const auto* number = std::get_if<std::int64_t>(&field_.value);
            passes(number != nullptr && inRange(expected_, static_cast<double>(*number) * factor));
        }
        if (expected_.equals) {
            compareValue(factor, ranged);
        }
        if (expected_.matches) {
            comparePattern();
        }
        const std::string mask = catalogue::maskOf(field_);
        if (!mask.empty()) {
            measurement_.value = mask;
        }
        if (!measurement_.passed) {
            judgement.misses.push_back(missText(measurement_, !mask.empty()));
        } else if (expected_.present && !*expected_.present) {
            passes(false);
            judgement.misses.push_back(fmt::format("{}: expected no value, got {}", measurement_.name,
                                                   record::toText(measurement_.value, measurement_.unit)));
        } else if (!field_.problem.empty()) {
            passes(false);
            judgement.misses.push_back(fmt::format("{}: {}", measurement_.name, field_.problem));
        }
        judgement.measurements.push_back(std::move(measurement_));
    }

private:
    void passes(bool good) { measurement_.passed = measurement_.passed && good; }

    void compareValue(double factor, bool asNumber)
    {
        const std::string text = substitute(*expected_.equals, variables_);
        const catalogue::DecodedField wanted{field_.field, literal(*field_.field, text), {}};
        const std::string mask = catalogue::maskOf(wanted);
        measurement_.limits.equals = mask.empty() ? scalarOf(wanted, asNumber, factor) : mask;
        passes(same(*field_.field, field_.value, wanted.value));
    }

    void comparePattern()
    {
        const std::string pattern = substituteInPattern(*expected_.matches, variables_);
        measurement_.limits.matches = shownPattern(pattern, field_.field->secret);
        passes(matches(written(field_), pattern));
    }

    const Expected& expected_;
    const catalogue::DecodedField& field_;
    const Variables& variables_;
    Measurement measurement_;
};

/// @returns "signal at least 30 dB and number at most 32".
std::string textOf(const Expected& list, const Variables& variables)
{
    // Judging any record words the demands.
    catalogue::Record any;
    for (const Expected& each : list.where) {
        any.push_back({each.field, std::int64_t{0}, {}});
    }
    std::vector<std::string> demands;
    for (const Measurement& each : judge(list.where, any, variables).measurements) {
        demands.push_back(fmt::format("{} {}", each.name, record::toText(each.limits, each.unit)));
    }
    return fmt::format("{}", fmt::join(demands, " and "));
}

/// Counts the records of a list that match.
void judgeRecords(const Expected& expected, const catalogue::DecodedField& field, const Variables& variables,
                  Judgement& judgement)
{
    const auto& records = std::get<std::vector<catalogue::Record>>(field.value);
    std::vector<catalogue::Record> matching;
    std::vector<catalogue::Record> others;
    for (const catalogue::Record& each : records) {
        (judge(expected.where, each, variables).misses.empty() ? matching : others).push_back(each);
    }

    Measurement measurement;
    measurement.name = expected.name;
    const auto number = static_cast<double>(matching.size());
    measurement.value = number;
    Expected limits = expected;
    if (expected.records == Records::kAll) {
        limits.minimum = static_cast<double>(std::max<std::size_t>(1, records.size()));
    }
    measurement.limits.minimum = limits.minimum;
    measurement.limits.maximum = limits.maximum;
    if (expected.equals) {
        catalogue::Field count;
        count.name = "count";
        count.type = catalogue::Type::kU16be;
        count.maximum = 0xFFFF;
        const auto wanted = std::get<std::int64_t>(literal(count, substitute(*expected.equals, variables)));
        measurement.limits.equals = static_cast<double>(wanted);
        measurement.passed = number == static_cast<double>(wanted);
    }
    measurement.passed = measurement.passed && inRange(limits, number);
    if (!measurement.passed) {
        const auto listed = [&](std::vector<catalogue::Record> some) {
            return catalogue::format({field.field, std::move(some), {}});
        };
        const std::string which = textOf(expected, variables);
        std::string got = fmt::format("{} of {}: {}", matching.size(), records.size(), listed(matching));
        if (records.empty()) {
            got = "an empty list";
        } else if (expected.records == Records::kAll) {
            got = fmt::format("{} of {}, not {}", matching.size(), records.size(), listed(others));
        } else if (matching.empty()) {
            got = "none of " + listed(records);
        }
        judgement.misses.push_back(
            fmt::format("{}: expected {}{}{}, got {}", expected.name,
                        expected.records == Records::kAll ? "all" : record::toText(measurement.limits, ""),
                        which.empty() ? "" : " with ", which, got));
    } else if (!field.problem.empty()) {
        measurement.passed = false;
        judgement.misses.push_back(fmt::format("{}: {}", expected.name, field.problem));
    }
    judgement.measurements.push_back(std::move(measurement));
}

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
        const std::string wanted = record::toText(measurement.limits, measurement.unit);
        judgement.misses.push_back(fmt::format("{}: expected {}, got a reply without this field", expected.name,
                                               wanted.empty() ? "a value" : wanted));
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

std::string plainText(const record::Scalar& value)
{
    const auto* text = std::get_if<std::string>(&value);
    return text != nullptr ? *text : record::toText(value);
}

std::string inJson(const std::string& text)
{
    const std::string quoted = nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    return quoted.substr(1, quoted.size() - 2);
}

std::string unitOf(const catalogue::Scale& scale)
{
    return fmt::format("{}{}{}", scale.unit, scale.only.empty() ? "" : " ", scale.only);
}

std::string Judgement::reason() const
{
    return fmt::format("{}", fmt::join(misses, "; "));
}

Judgement judge(std::span<const Expected> demands, std::span<const catalogue::DecodedField> fields,
                const Variables& variables)
{
    std::vector<Expected> expected;
    std::ranges::transform(demands, std::back_inserter(expected),
                           [&](const Expected& each) { return computed(each, variables); });
    Judgement judgement;
    for (const auto& field : fields) {
        const auto found = std::ranges::find(expected, field.field->name, &Expected::name);
        Expected nothing;
        nothing.name = field.field->name;
        if (found != expected.end() && found->records != Records::kNotAList) {
            judgeRecords(*found, field, variables, judgement);
            continue;
        }
        FieldJudge(found == expected.end() ? nothing : *found, field, variables).judge(judgement);
    }
    for (const Expected& each : expected) {
        if (std::ranges::none_of(fields, [&](const auto& field) { return field.field->name == each.name; })) {
            judgeMissing(each, variables, judgement);
        }
    }
    return judgement;
}

namespace {

/// Compares a value of a program or an instrument.
/// @returns whether it is as expected.
bool judgeValue(const Expected& expected, Measurement& value, const Variables& variables)
{
    const auto* number = std::get_if<double>(&value.value);
    value.limits = {expected.minimum, expected.maximum, std::nullopt, std::nullopt};
    if (!expected.unit.empty()) {
        // Without a unit it is in the one that is expected.
        const auto converted = number == nullptr || value.unit.empty()
                                   ? std::nullopt
                                   : protocol::convert(*number, value.unit, expected.unit);
        if (number != nullptr && !value.unit.empty() && !converted) {
            throw protocol::UserError(fmt::format("{}: expected a value in {}, got {}", value.name, expected.unit,
                                                  record::toText(value.value, value.unit)));
        }
        if (converted) {
            value.value = protocol::parseFinite(protocol::shortText(*converted)).value_or(*converted);
            number = std::get_if<double>(&value.value);
        }
        value.unit = expected.unit;
    }
    bool passed = !expected.present || *expected.present;
    if (expected.minimum || expected.maximum) {
        passed = passed && number != nullptr && inRange(expected, *number);
    }
    const std::string text = plainText(value.value);
    if (expected.equals) {
        const std::string wanted = substitute(*expected.equals, variables);
        const auto wantedNumber = number == nullptr ? std::nullopt : protocol::parseFinite(wanted);
        value.limits.equals = wanted;
        if (wantedNumber) {
            value.limits.equals = *wantedNumber;
        } else if (std::holds_alternative<bool>(value.value) && (wanted == "yes" || wanted == "no")) {
            value.limits.equals = wanted == "yes";
        }
        passed = passed &&
                 (wantedNumber ? isAtMost(*wantedNumber, *number) && isAtMost(*number, *wantedNumber) : wanted == text);
    }
    if (expected.matches) {
        const std::string pattern = substituteInPattern(*expected.matches, variables);
        value.limits.matches = pattern;
        passed = passed && matches(text, pattern);
    }
    return passed;
}

}  // namespace

Judgement judgeValues(std::span<const Expected> expected, std::vector<Measurement> values, const Variables& variables)
{
    Judgement judgement;
    for (Measurement& value : values) {
        const auto found = std::ranges::find(expected, value.name, &Expected::name);
        if (found != expected.end()) {
            value.passed = judgeValue(computed(*found, variables), value, variables);
        }
        if (!value.passed) {
            judgement.misses.push_back(
                found->present == false
                    ? fmt::format("{}: expected no value, got {}", value.name, record::toText(value.value, value.unit))
                    : missText(value, false));
        }
    }
    for (const Expected& each : expected) {
        if (each.present != false && std::ranges::find(values, each.name, &Measurement::name) == values.end()) {
            judgement.misses.push_back(each.name + ": expected a value, got none");
        }
    }
    judgement.measurements = std::move(values);
    return judgement;
}

Judgement judge(const Prompt& prompt, const std::string& answer, const Variables& variables)
{
    const Expected expected = computed(prompt.expect.value_or(Expected{}), variables);
    Measurement measurement;
    measurement.name = prompt.id;
    measurement.value = answer;
    measurement.unit = expected.unit;
    if (prompt.kind == Prompt::Kind::kNumber) {
        const double number = protocol::parseFinite(answer).value_or(0);
        measurement.value = number;
        measurement.limits.minimum = expected.minimum;
        measurement.limits.maximum = expected.maximum;
        measurement.passed = inRange(expected, number);
    } else if (prompt.kind == Prompt::Kind::kYesNo) {
        measurement.value = answer == "yes";
        if (expected.equals) {
            measurement.limits.equals = *expected.equals == "yes";
            measurement.passed = answer == *expected.equals;
        }
    } else {
        if (expected.equals) {
            const std::string text = substitute(*expected.equals, variables);
            measurement.limits.equals = text;
            measurement.passed = answer == text;
        }
        if (expected.matches) {
            const std::string pattern = substituteInPattern(*expected.matches, variables);
            measurement.limits.matches = pattern;
            measurement.passed = measurement.passed && matches(answer, pattern);
        }
    }
    Judgement judgement;
    if (prompt.secret) {
        measurement.value = std::string(answer.size(), catalogue::kMask);
        measurement.limits = {};
    }
    if (!measurement.passed) {
        judgement.misses.push_back(
            prompt.secret ? fmt::format("{}: expected another answer from the operator (masked)", prompt.id)
                          : fmt::format("{}: expected {} as the operator's answer, got {}", prompt.id,
                                        record::toText(measurement.limits, measurement.unit),
                                        record::toText(measurement.value, measurement.unit)));
    }
    judgement.measurements.push_back(std::move(measurement));
    return judgement;
}

std::string mistyped(const Prompt& prompt, const std::string& answer, const Variables& variables)
{
    if (prompt.kind != Prompt::Kind::kText) {
        return {};
    }
    const std::string expected = prompt.expect ? prompt.expect->matches.value_or("") : "";
    for (const std::string& each : {prompt.mask, expected}) {
        const std::string pattern = substituteInPattern(each, variables);
        if (!pattern.empty() && !matches(answer, pattern)) {
            return prompt.secret
                       ? "expected another text (masked)"
                       : fmt::format("expected a text that matches /{}/, got {}", pattern, protocol::inQuotes(answer));
        }
    }
    return {};
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
    // A unit may answer with UTF-8, which a station does not send.
    const auto size = static_cast<std::int64_t>(written.size());
    if (field.type == catalogue::Type::kAscii && protocol::printable(written) == written && size >= field.minimum &&
        size <= field.maximum) {
        return written;
    }
    // A command that has this field only: the codec knows all ways to write a value.
    catalogue::Command command;
    command.key = "value";
    command.params = std::span(&field, 1);
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
        return fmt::to_string(*number);
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
