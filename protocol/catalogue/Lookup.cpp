#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "protocol/Text.h"
#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"

namespace protocol::catalogue {

namespace {

template <class Range, class Predicate>
auto find(const Range& range, Predicate predicate) -> decltype(&*range.begin())
{
    const auto found = std::ranges::find_if(range, predicate);
    return found == range.end() ? nullptr : &*found;
}

/// Splits "tuner.play" and looks for "play" among the `members` of the group "tuner".
template <class Member>
const Member* findMember(Groups groups, std::string_view key, std::span<const Member> Group::*members)
{
    const auto dot = key.find('.');
    if (dot == std::string_view::npos) {
        return nullptr;
    }
    const Group* group = findGroup(groups, key.substr(0, dot));
    return group == nullptr
               ? nullptr
               : find(group->*members, [&](const Member& member) { return member.key == key.substr(dot + 1); });
}

}  // namespace

const Group* findGroup(Groups groups, std::uint8_t code)
{
    return find(groups, [&](const Group& group) { return group.code == code; });
}

const Group* findGroup(Groups groups, std::string_view key)
{
    return find(groups, [&](const Group& group) { return group.key == key; });
}

const Command* findCommand(Groups groups, std::uint8_t cmdOne, std::uint8_t cmdTwo)
{
    const Group* group = findGroup(groups, cmdOne);
    return group == nullptr ? nullptr
                            : find(group->commands, [&](const Command& command) { return command.cmdTwo == cmdTwo; });
}

const Command* findCommand(Groups groups, std::string_view key)
{
    return findMember(groups, key, &Group::commands);
}

const Notice* findNotice(Groups groups, std::string_view key)
{
    return findMember(groups, key, &Group::notices);
}

std::string fullKey(Groups groups, const Command& command)
{
    return fmt::format("{}.{}", findGroup(groups, command.cmdOne)->key, command.key);
}

std::string fullKey(Groups groups, const Notice& notice)
{
    return fmt::format("{}.{}", findGroup(groups, static_cast<std::uint8_t>(notice.cmdOne & ~kReplyBit))->key,
                       notice.key);
}

bool answersUnknown(const Frame& command, const Frame& received)
{
    return received.cmdOne == (command.cmdOne | kReplyBit) && received.cmdTwo == command.cmdTwo;
}

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
    const auto group =
        dot == std::string_view::npos ? std::string() : fmt::format(": unknown group {}", inQuotes(key.substr(0, dot)));
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
