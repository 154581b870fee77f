#include "protocol/catalogue/Suggest.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "protocol/Text.h"

namespace protocol::catalogue {

namespace {

/// For a key whose group is unknown, or which has none.
std::string noSuchGroup(Groups groups, std::string_view key, std::size_t dot)
{
    std::vector<std::string> keys;
    for (const Group& group : groups) {
        for (const Command& command : group.commands) {
            keys.push_back(fmt::format("{}.{}", group.key, command.key));
        }
    }
    const std::vector<std::string_view> words(keys.begin(), keys.end());
    const std::string suggestion = didYouMean(key, words);
    const auto group = dot == std::string_view::npos
                           ? std::string()
                           : fmt::format(": there is no group {}", inQuotes(key.substr(0, dot)));
    return fmt::format("{} is not a command{}", inQuotes(key),
                       suggestion.empty() ? group + " (see 'catalogue list')" : suggestion);
}

}  // namespace

std::string noSuchCommand(Groups groups, std::string_view key)
{
    const auto dot = key.find('.');
    const std::string_view groupKey = key.substr(0, dot);
    const auto group = std::ranges::find(groups, groupKey, &Group::key);
    if (group == groups.end()) {
        return noSuchGroup(groups, key, dot);
    }

    std::vector<std::string_view> commands;
    std::ranges::transform(group->commands, std::back_inserter(commands), &Command::key);
    const std::string prefix = std::string(group->key) + ".";
    if (dot == std::string_view::npos) {
        return fmt::format("{} is a group; write a command as GROUP.COMMAND{}", inQuotes(key),
                           commands.empty() ? "" : fmt::format(", as in '{}{}'", prefix, commands.front()));
    }
    const std::string_view word = nearest(key.substr(dot + 1), commands);
    return fmt::format("{} is not a command{}", inQuotes(key),
                       word.empty() ? " (see 'catalogue list')" : fmt::format("; did you mean '{}{}'?", prefix, word));
}

}  // namespace protocol::catalogue
