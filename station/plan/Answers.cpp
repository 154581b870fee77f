#include "station/plan/Answers.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <toml++/toml.h>
#include <algorithm>
#include <span>
#include <vector>

#include "protocol/Quantity.h"
#include "protocol/Text.h"
#include "protocol/toml/TableReader.h"
#include "station/plan/Load.h"

namespace station::plan {

using protocol::toml_file::Problems;

namespace {

std::vector<const Prompt*> promptsOf(const Plan& plan)
{
    std::vector<const Prompt*> list;
    for (const auto* phase : {&plan.setup, &plan.main, &plan.teardown}) {
        for (const auto& group : *phase) {
            for (const auto& step : group.steps) {
                if (const auto* prompt = std::get_if<Prompt>(&step.action)) {
                    list.push_back(prompt);
                }
            }
        }
    }
    return list;
}

/// @returns a value as an operator would have typed it; nothing for a table, a list, a date.
std::optional<std::string> typed(const toml::node& node)
{
    if (const auto* text = node.as_string()) {
        return text->get();
    }
    if (const auto* flag = node.as_boolean()) {
        return flag->get() ? "yes" : "no";
    }
    if (const auto* integer = node.as_integer()) {
        return fmt::to_string(integer->get());
    }
    if (const auto* number = node.as_floating_point()) {
        return protocol::shortText(number->get());
    }
    return std::nullopt;
}

void reportUnknown(Problems& problems, const toml::key& key, std::span<const Prompt* const> prompts)
{
    std::vector<std::string_view> ids;
    std::ranges::transform(prompts, std::back_inserter(ids),
                           [](const Prompt* prompt) { return std::string_view(prompt->id); });
    const auto place = key.source().begin;
    problems.push_back({place.line, place.column,
                        fmt::format("expected the id of a question of the plan, got {}{}",
                                    protocol::inQuotes(key.str()), protocol::didYouMean(key.str(), ids))});
}

std::string_view trimmed(std::string_view text)
{
    const auto first = text.find_first_not_of(" \t\r\n");
    return first == std::string_view::npos ? "" : text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

}  // namespace

Answers::Answers(std::string_view text, const Plan& plan, Problems& problems)
{
    const auto prompts = promptsOf(plan);
    const auto read = [&](const toml::table& table, Table& into, bool top) {
        for (const auto& [key, node] : table) {
            if (top && node.is_table()) {
                continue;
            }
            const auto prompt = std::ranges::find(prompts, key.str(), [](const Prompt* each) { return each->id; });
            if (prompt == prompts.end()) {
                reportUnknown(problems, key, prompts);
                continue;
            }
            const auto given = typed(node);
            const auto answer = given ? parseAnswer(**prompt, *given) : std::nullopt;
            if (!answer) {
                protocol::toml_file::report(
                    problems, node,
                    fmt::format("{}: expected {}, got {}", (*prompt)->id, describe(**prompt),
                                given && !(*prompt)->secret ? protocol::inQuotes(*given) : "another type"));
                continue;
            }
            into.emplace(key.str(), *answer);
        }
    };
    const toml::table table = protocol::toml_file::parse(text, problems);
    read(table, all_, true);
    for (const auto& [key, node] : table) {
        if (const auto* ofPort = node.as_table()) {
            read(*ofPort, perPort_[std::string(key.str())], false);
        }
    }
    protocol::toml_file::sort(problems);
}

std::optional<std::string> Answers::find(const std::string& port, const std::string& id) const
{
    if (const auto table = perPort_.find(port); table != perPort_.end()) {
        if (const auto answer = table->second.find(id); answer != table->second.end()) {
            return answer->second;
        }
    }
    const auto answer = all_.find(id);
    return answer == all_.end() ? std::nullopt : std::optional(answer->second);
}

std::optional<std::string> parseAnswer(const Prompt& prompt, std::string_view text)
{
    const std::string_view answer = trimmed(text);
    switch (prompt.kind) {
        case Prompt::Kind::kYesNo:
            if (answer == "y" || answer == "Y" || answer == "yes") {
                return "yes";
            }
            return answer == "n" || answer == "N" || answer == "no" ? std::optional<std::string>("no") : std::nullopt;
        case Prompt::Kind::kNumber:
            return protocol::parseFinite(answer) ? std::optional(std::string(answer)) : std::nullopt;
        case Prompt::Kind::kChoice:
            if (std::ranges::find(prompt.choices, answer) == prompt.choices.end()) {
                return std::nullopt;
            }
            break;
        case Prompt::Kind::kText:
            break;
    }
    return answer.empty() ? std::nullopt : std::optional(std::string(answer));
}

Answers readAnswers(const std::string& path, const Plan& plan, Problems& problems)
{
    try {
        return {readFile(path), plan, problems};
    } catch (const std::system_error& error) {
        problems.push_back(unreadable(error));
        return {};
    }
}

std::string describe(const Prompt& prompt)
{
    switch (prompt.kind) {
        case Prompt::Kind::kYesNo:
            return "yes or no";
        case Prompt::Kind::kNumber:
            return "a number";
        case Prompt::Kind::kChoice:
            return fmt::format("{}", fmt::join(prompt.choices, " or "));
        case Prompt::Kind::kText:
            break;
    }
    return "a text";
}

}  // namespace station::plan
