#include "protocol/catalogue/Suggest.h"

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
            keys.push_back(std::string(group.key) + "." + std::string(command.key));
        }
    }
    const std::vector<std::string_view> words(keys.begin(), keys.end());
    const std::string suggestion = didYouMean(key, words);
    if (!suggestion.empty()) {
        return inQuotes(key) + " is not a command" + suggestion;
    }
    return inQuotes(key) + " is not a command" +
           (dot == std::string_view::npos ? "" : ": there is no group " + inQuotes(key.substr(0, dot))) +
           " (see 'catalogue list')";
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
        return inQuotes(key) + " is a group; a command of it is written GROUP.COMMAND" +
               (commands.empty() ? "" : ", as in " + inQuotes(prefix + std::string(commands.front())));
    }
    const std::string_view word = nearest(key.substr(dot + 1), commands);
    return inQuotes(key) + " is not a command" +
           (word.empty() ? " (see 'catalogue list')" : "; did you mean " + inQuotes(prefix + std::string(word)) + "?");
}

}  // namespace protocol::catalogue
