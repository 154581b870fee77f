#include "station/plan/LoadContext.h"

#include <fmt/format.h>

#include <algorithm>

#include "protocol/Quantity.h"
#include "station/plan/Judge.h"
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
            protocol::toml_file::report(context.problems, node,
                                        fmt::format("expected an earlier step with store = \"{}\", got none", name));
        }
    }
}

std::optional<std::string> writtenValue(Context& context, const toml::node& node, std::string_view name)
{
    if (const auto* integer = node.as_integer()) {
        return fmt::to_string(integer->get());
    }
    if (const auto* number = node.as_floating_point()) {
        return protocol::shortText(number->get());
    }
    if (const auto* text = node.as_string()) {
        checkVariables(context, node, text->get());
        return text->get();
    }
    protocol::toml_file::report(context.problems, node,
                                fmt::format("{}: expected {}", inQuotes(name),
                                            node.is_boolean() ? "a choice's name in quotation marks, got true or false"
                                                              : "a number or a text, got another type"));
    return std::nullopt;
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

std::vector<std::pair<std::string, std::string>> loadConditions(Context& context, TableReader& reader)
{
    std::vector<std::pair<std::string, std::string>> list;
    if (const auto* table = reader.table("only_if")) {
        for (const auto& [key, node] : *table) {
            if (!context.variables.contains(key.str())) {
                report(context, key, fmt::format("expected an earlier step with store = \"{}\", got none", key.str()));
            }
            if (const auto value = writtenValue(context, node, key.str())) {
                list.emplace_back(key.str(), *value);
            }
        }
    }
    return list;
}

bool loadRequires(TableReader& reader)
{
    const auto word = reader.optionalText("requires");
    if (word && *word != "headunit") {
        reader.report("requires", fmt::format("'requires': expected \"headunit\", got \"{}\"", *word));
    }
    return word.has_value();
}

}  // namespace station::plan::loading
