#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <iterator>

#include "protocol/catalogue/Codec.h"
#include "station/Pattern.h"
#include "station/plan/Judge.h"
#include "station/plan/LoadContext.h"
#include "station/plan/Variables.h"

namespace station::plan::loading {

namespace catalogue = protocol::catalogue;
using catalogue::Field;
using protocol::toml_file::TableReader;

void checkPattern(Context& context, const toml::node& node, const std::string& pattern)
{
    checkVariables(context, node, pattern);
    // The values are not known yet, but any finds the syntax that RE2 never supports.
    Variables values;
    for (const std::string& name : variablesIn(pattern)) {
        values[name] = "0";
    }
    try {
        station::checkPattern(substitute(pattern, values));
    } catch (const PatternError& error) {
        if (values.empty() || !error.inNumbers()) {
            protocol::toml_file::report(context.problems, node,
                                        fmt::format("expected a regular expression in RE2's syntax, got {}: {}",
                                                    inQuotes(pattern), error.what()));
        }
    }
}

namespace {

/// Checks a value that is written as the file has it.
void checkLiteral(Context& context, const toml::node& node, const Field& field, const std::string& text)
{
    if (!variablesIn(text).empty()) {
        return;
    }
    try {
        literal(field, text);
    } catch (const protocol::UserError& error) {
        protocol::toml_file::report(context.problems, node, error.what());
    }
}

Expected loadField(Context& context, const toml::node& node, const Field& field);

constexpr std::array<std::string_view, 4> kOfLists{"any", "all", "count", "where"};

void loadCount(Context& context, TableReader& reader, const Field& field, Expected& expected)
{
    Field count;
    count.name = "count";
    count.type = catalogue::Type::kU16be;
    count.minimum = field.minimum;
    count.maximum = field.maximum;
    const Expected limits = loadField(context, *reader.node("count"), count);
    expected.minimum = limits.minimum;
    expected.maximum = limits.maximum;
    expected.minimumOf = limits.minimumOf;
    expected.maximumOf = limits.maximumOf;
    expected.equals = limits.equals;
    if (const toml::table* table = reader.raw()["count"].as_table()) {
        if (table->contains("present")) {
            reader.report("count", "'count': expected 'min', 'max' or 'equals', got 'present'");
        }
    }
}

/// Reads how many records of a list have to match, and what a record has to be like.
void loadRecords(Context& context, const toml::node& node, const Field& field, Expected& expected)
{
    if (!node.is_table()) {
        protocol::toml_file::report(context.problems, node,
                                    fmt::format("{}: expected {{ count = … }}, {{ any = {{ … }} }} or "
                                                "{{ all = {{ … }} }} for a list of records, got one value",
                                                inQuotes(field.name)));
        return;
    }
    TableReader reader(*node.as_table(), "expectation", context.problems);
    constexpr std::array<Records, 3> kKinds{Records::kAny, Records::kAll, Records::kCount};
    std::vector<std::string> found;
    for (std::size_t i = 0; i < kKinds.size(); ++i) {
        if (reader.node(kOfLists.at(i)) != nullptr) {
            expected.records = kKinds.at(i);
            found.push_back(inQuotes(kOfLists.at(i)));
        }
    }
    if (reader.node("present") != nullptr) {
        expected.present = reader.boolean("present", true);
        found.push_back("'present'");
    }
    if (found.size() != 1) {
        protocol::toml_file::report(
            context.problems, node,
            fmt::format("{}: expected one of 'any', 'all' and 'count' for a list of records, got {}",
                        inQuotes(field.name), found.empty() ? "none" : fmt::format("{}", fmt::join(found, " and "))));
        return;
    }
    if (expected.records == Records::kAny) {
        expected.minimum = 1;
    } else if (expected.records == Records::kCount) {
        loadCount(context, reader, field, expected);
    }
    const bool inside = expected.records == Records::kAny || expected.records == Records::kAll;
    const std::string_view key = kOfLists.at(inside ? static_cast<std::size_t>(expected.records) - 1 : 3);
    if (key != "where" && reader.node("where") != nullptr) {
        reader.report("where", fmt::format("'where': expected it beside 'count', got it beside '{}'", key));
    }
    if (const toml::table* where = expected.present ? nullptr : reader.table(key)) {
        std::vector<const Field*> fields;
        std::ranges::transform(field.fields, std::back_inserter(fields), [](const Field& each) { return &each; });
        expected.where = loadExpected(context, *where, fields, "a record of " + inQuotes(field.name));
        if (where->empty()) {
            reader.report(key, fmt::format("'{}': expected {{ FIELD = … }}, got an empty table", key));
        }
        for (const Expected& each : expected.where) {
            if (each.present) {
                reader.report(key, fmt::format("{}: expected a value or limits, got 'present': every record has it",
                                               inQuotes(each.name)));
            }
        }
    }
    reader.finish();
}

Expected loadField(Context& context, const toml::node& node, const Field& field)
{
    Expected expected;
    expected.name = field.name;
    expected.field = &field;
    expected.unit = field.unit;
    if (field.type == catalogue::Type::kRecords) {
        loadRecords(context, node, field, expected);
        return expected;
    }
    if (!node.is_table()) {
        if (auto text = writtenValue(context, node, field.name, &field)) {
            checkLiteral(context, node, field, *text);
            expected.equals = std::move(text);
        }
        return expected;
    }
    TableReader reader(*node.as_table(), "expectation", context.problems);
    for (const std::string_view key : kOfLists) {
        if (reader.node(key) != nullptr) {
            reader.report(key, fmt::format("{}: expected a list of records for '{}', got a field with one value",
                                           inQuotes(field.name), key));
        }
    }
    loadLimits(context, reader, expected);
    if (const auto* value = reader.node("equals")) {
        if (auto text = writtenValue(context, *value, "equals", &field)) {
            checkLiteral(context, *value, field, *text);
            expected.equals = std::move(text);
        }
    }
    expected.matches = reader.optionalText("matches");
    if (expected.matches) {
        checkPattern(context, *reader.node("matches"), *expected.matches);
        if (field.type == catalogue::Type::kBytes && expected.matches->find(':') != std::string::npos) {
            reader.report("matches", fmt::format("{}: expected bytes as in '00 1A 7D', got {}", inQuotes(field.name),
                                                 inQuotes(*expected.matches)));
        }
        if (isNumber(field)) {
            reader.report("matches", fmt::format("{}: expected 'min', 'max' or 'equals' for a number, got 'matches'",
                                                 inQuotes(field.name)));
        }
    }
    if (reader.node("present") != nullptr) {
        expected.present = reader.boolean("present", true);
    }
    reader.finish();
    return expected;
}

}  // namespace

std::vector<Expected> loadExpected(Context& context, const toml::table& table, const std::vector<const Field*>& fields,
                                   const std::string& frame)
{
    std::vector<Expected> list;
    for (const auto& [key, node] : table) {
        const auto found = std::ranges::find(fields, key.str(), &Field::name);
        if (found != fields.end()) {
            list.push_back(loadField(context, node, **found));
            continue;
        }
        std::vector<std::string_view> names;
        std::ranges::transform(fields, std::back_inserter(names), &Field::name);
        std::string hint = protocol::didYouMean(key.str(), names);
        if (hint.empty()) {
            hint = names.empty() ? ", which has no fields" : fmt::format(", which has {}", fmt::join(names, ", "));
        }
        report(context, key, fmt::format("unknown field {} of {}{}", inQuotes(key.str()), frame, hint));
    }
    return list;
}

std::optional<Expected> loadAnswer(Context& context, const toml::node& node, const Prompt& prompt)
{
    Expected expected;
    expected.name = prompt.id;
    switch (prompt.kind) {
        case Prompt::Kind::kYesNo: {
            const std::string text = node.is_string() ? node.as_string()->get() : "";
            if (text == "yes" || text == "no") {
                expected.equals = text;
            } else if (text != "any") {
                protocol::toml_file::report(context.problems, node, "'expect': expected \"yes\", \"no\" or \"any\"");
                return std::nullopt;
            }
            return expected;
        }
        case Prompt::Kind::kChoice: {
            const auto text = node.value<std::string>();
            if (!text || std::ranges::find(prompt.choices, *text) == prompt.choices.end()) {
                protocol::toml_file::report(
                    context.problems, node,
                    fmt::format("'expect': expected one of {}, got {}", fmt::join(prompt.choices, ", "),
                                text ? inQuotes(*text) : "another type"));
                return std::nullopt;
            }
            expected.equals = *text;
            return expected;
        }
        case Prompt::Kind::kNumber: {
            if (!node.is_table()) {
                protocol::toml_file::report(context.problems, node,
                                            "'expect': expected limits: { min = …, max = …, unit = \"…\" }");
                return std::nullopt;
            }
            TableReader reader(*node.as_table(), "expectation", context.problems);
            loadLimits(context, reader, expected);
            reader.finish();
            return expected;
        }
        case Prompt::Kind::kText:
            break;
    }
    if (!node.is_table()) {
        expected.equals = writtenValue(context, node, "expect");
        return expected;
    }
    TableReader reader(*node.as_table(), "expectation", context.problems);
    expected.equals = reader.optionalText("equals");
    expected.matches = reader.optionalText("matches");
    if (expected.equals) {
        checkVariables(context, *reader.node("equals"), *expected.equals);
    }
    if (expected.matches) {
        checkPattern(context, *reader.node("matches"), *expected.matches);
    }
    reader.finish();
    return expected;
}

}  // namespace station::plan::loading
