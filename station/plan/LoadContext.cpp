#include "station/plan/LoadContext.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <system_error>

#include "protocol/Quantity.h"
#include "station/plan/Judge.h"
#include "station/plan/Load.h"
#include "station/plan/Variables.h"

namespace station::plan::loading {

using protocol::toml_file::TableReader;

void report(Context& context, const toml::key& key, std::string text)
{
    const auto place = key.source().begin;
    context.problems.push_back(
        {std::max<unsigned>(1, place.line), std::max<unsigned>(1, place.column), std::move(text)});
}

void checkVariables(Context& context, const toml::node& node, std::string_view text)
{
    for (const std::string& name : variablesIn(text)) {
        if (!context.variables.contains(name)) {
            // More names cost more time than a hint is worth.
            constexpr std::size_t kMostNames = 100;
            std::vector<std::string_view> names;
            if (context.variables.size() <= kMostNames) {
                std::ranges::transform(context.variables, std::back_inserter(names),
                                       [](const auto& each) { return std::string_view(each.first); });
            }
            protocol::toml_file::report(
                context.problems, node,
                fmt::format("expected an earlier step with store = \"{}\" or a parameter of this name, got none{}",
                            name, protocol::didYouMean(name, names)));
        }
    }
}

std::string fillIn(Context& context, const std::string& text, const protocol::catalogue::Field* field)
{
    Variables values;
    for (const std::string& name : variablesIn(text)) {
        const auto found = context.variables.find(name);
        values[name] = fmt::format("${{{}}}", name);
        if (found == context.variables.end() || !found->second.value) {
            continue;
        }
        const Variable& variable = found->second;
        const bool measures = field != nullptr && (field->scale || !field->unit.empty()) && text == values[name];
        values[name] = *variable.value + (measures ? variable.unit : "");
        if (field != nullptr && field->secret) {
            context.secrets.insert(name);
        }
    }
    return substitute(text, values);
}

std::optional<std::string> writtenValue(Context& context, const toml::node& node, std::string_view name,
                                        const protocol::catalogue::Field* field)
{
    if (const auto* integer = node.as_integer()) {
        return fmt::to_string(integer->get());
    }
    if (const auto* number = node.as_floating_point()) {
        return protocol::shortText(number->get());
    }
    if (const auto* text = node.as_string()) {
        checkVariables(context, node, text->get());
        return fillIn(context, text->get(), field);
    }
    protocol::toml_file::report(context.problems, node,
                                fmt::format("{}: expected {}", inQuotes(name),
                                            node.is_boolean() ? "a choice's name in quotation marks, got true or false"
                                                              : "a number or a text, got another type"));
    return std::nullopt;
}

std::string shownValue(const toml::node& node, const std::string& value, const protocol::catalogue::Field* field)
{
    if (field == nullptr || !field->secret) {
        return value;
    }
    return masked(variablesIn(value).empty() ? value : node.value_or(std::string()));
}

Duration seconds(TableReader& reader, std::string_view key, Duration otherwise, double least)
{
    constexpr double kDay = 86400;
    const auto value = reader.seconds(key, least, kDay);
    return value ? std::chrono::duration_cast<Duration>(std::chrono::duration<double>(*value)) : otherwise;
}

std::optional<OnFailure> onFailure(TableReader& reader)
{
    const auto index = reader.oneOf("on_failure", {"next", "stop-group", "stop"});
    return index ? std::optional(static_cast<OnFailure>(*index)) : std::nullopt;
}

int count(TableReader& reader, std::string_view key, int otherwise, int least)
{
    constexpr int kMost = 10'000;
    return static_cast<int>(reader.integer(key, false, least, kMost).value_or(otherwise));
}

std::optional<std::string> useFile(Context& context, const toml::node& node, const std::string& name)
{
    const std::filesystem::path path = std::filesystem::path(context.path).parent_path() / name;
    // A device or a pipe might never end.
    if (std::error_code error; std::filesystem::exists(path, error) && !std::filesystem::is_regular_file(path, error)) {
        protocol::toml_file::report(context.problems, node, name + ": expected a file, got something else");
        return std::nullopt;
    }
    try {
        std::string content = readFile(path.string());
        context.used += fmt::format("\n{}\n{}", name, content);
        return content;
    } catch (const std::system_error& error) {
        protocol::toml_file::report(context.problems, node, format(name, unreadable(error)));
        return std::nullopt;
    }
}

Keep loadKeep(TableReader& reader)
{
    if (reader.node("keep") != nullptr && reader.node("store") == nullptr) {
        reader.report("keep", "'keep': expected it beside 'store', got it alone");
    }
    return static_cast<Keep>(reader.oneOf("keep", {"last", "first", "all"}).value_or(0));
}

namespace {

using Is = Condition::Is;

constexpr std::pair<std::string_view, Is> kOperators[] = {
    {"=", Is::kEqual}, {"!=", Is::kUnequal}, {"<", Is::kBelow},  {"<=", Is::kAtMost},
    {">", Is::kAbove}, {">=", Is::kAtLeast}, {"in", Is::kOneOf},
};

/// Adds the value of a condition, as the run stores such a value.
void addValue(Context& context, const toml::node& node, const Variable& variable, Condition& condition)
{
    auto value = writtenValue(context, node, condition.variable, variable.field);
    if (!value) {
        return;
    }
    condition.text += (condition.values.empty() ? " " : ", ") + shownValue(node, *value, variable.field);
    const auto problem = [&](const std::string& text) { protocol::toml_file::report(context.problems, node, text); };
    if (!variable.choices.empty() && std::ranges::find(variable.choices, *value) == variable.choices.end()) {
        problem(fmt::format("{}: expected one of {}, got {}", inQuotes(condition.variable),
                            fmt::join(variable.choices, ", "), inQuotes(*value)));
    }
    // A number that does not come from a field has a unit of its own; a program may also print a text.
    if (const auto quantity = protocol::parseQuantity(*value);
        variable.field == nullptr && variable.isNumber && quantity && !quantity->unit.empty()) {
        const auto number = protocol::convert(quantity->number, quantity->unit, variable.unit);
        if (!number) {
            problem(fmt::format("{}: expected a number{}, got {}", inQuotes(condition.variable),
                                variable.unit.empty() ? "" : " in " + variable.unit, inQuotes(*value)));
            return;
        }
        value = protocol::toText(*number);
    }
    try {
        if (variable.field != nullptr) {
            value = written({variable.field, literal(*variable.field, *value), {}});
        }
    } catch (const protocol::UserError& error) {
        problem(error.what());
    }
    condition.values.push_back(*value);
}

void loadCondition(Context& context, const toml::key& key, Is is, const toml::node& node, std::vector<Condition>& list)
{
    const auto known = context.variables.find(key.str());
    const Variable variable = known == context.variables.end() ? Variable() : known->second;
    const auto* const word = std::ranges::find(kOperators, is, &std::pair<std::string_view, Is>::second);
    Condition condition{
        std::string(key.str()), is, {}, variable.isNumber, fmt::format("{} {}", key.str(), word->first)};
    const toml::array* const several = is == Is::kOneOf ? node.as_array() : nullptr;
    if (is == Is::kOneOf && (several == nullptr || several->empty())) {
        protocol::toml_file::report(context.problems, node,
                                    several != nullptr ? "'in': expected a list of values, got an empty list"
                                                       : "'in': expected a list of values, got another type");
        return;
    }
    const bool ordered = is != Is::kEqual && is != Is::kUnequal && is != Is::kOneOf;
    if (ordered && known != context.variables.end() && !variable.isNumber) {
        protocol::toml_file::report(context.problems, node,
                                    fmt::format("expected '=', '!=' or 'in' for {}, which is not a number, got '{}'",
                                                inQuotes(key.str()), word->first));
        return;
    }
    if (several == nullptr) {
        addValue(context, node, variable, condition);
    } else {
        for (const toml::node& each : *several) {
            addValue(context, each, variable, condition);
        }
    }
    if (!condition.values.empty()) {
        list.push_back(std::move(condition));
    }
}

}  // namespace

std::vector<Condition> loadConditions(Context& context, TableReader& reader)
{
    std::vector<Condition> list;
    const auto* table = reader.table("only_if");
    if (table == nullptr) {
        return list;
    }
    for (const auto& [key, node] : *table) {
        if (!context.variables.contains(key.str())) {
            report(context, key,
                   fmt::format("expected an earlier step with store = \"{}\" or a parameter of this name, got none",
                               key.str()));
        }
        if (node.is_array()) {
            protocol::toml_file::report(
                context.problems, node,
                fmt::format("{}: expected a value, or {{ in = [ … ] }} for several, got a list", inQuotes(key.str())));
            continue;
        }
        if (!node.is_table()) {
            loadCondition(context, key, Is::kEqual, node, list);
            continue;
        }
        for (const auto& [word, value] : *node.as_table()) {
            const auto* const found =
                std::ranges::find(kOperators, word.str(), &std::pair<std::string_view, Is>::first);
            if (found == std::end(kOperators)) {
                report(context, word, fmt::format("expected =, !=, <, <=, >, >= or in, got {}", inQuotes(word.str())));
            } else {
                loadCondition(context, key, found->second, value, list);
            }
        }
    }
    return list;
}

}  // namespace station::plan::loading
