#include "protocol/catalogue/Suggest.h"

#include <algorithm>
#include <numeric>
#include <vector>

#include "protocol/InQuotes.h"

namespace protocol::catalogue {

namespace {

/// Nobody mistypes a name that is longer; and the work grows with the square.
constexpr std::size_t kLongestWord = 64;

char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// How many characters have to be put in, taken out, changed or swapped with their neighbour.
std::size_t distance(std::string_view one, std::string_view other)
{
    std::vector<std::size_t> before;
    std::vector<std::size_t> above(other.size() + 1);
    std::iota(above.begin(), above.end(), std::size_t{0});
    for (std::size_t i = 1; i <= one.size(); ++i) {
        std::vector<std::size_t> row(other.size() + 1, i);
        for (std::size_t j = 1; j <= other.size(); ++j) {
            const std::size_t changed = lower(one[i - 1]) == lower(other[j - 1]) ? 0 : 1;
            row[j] = std::min({above[j] + 1, row[j - 1] + 1, above[j - 1] + changed});
            if (i > 1 && j > 1 && lower(one[i - 1]) == lower(other[j - 2]) &&
                lower(one[i - 2]) == lower(other[j - 1])) {
                row[j] = std::min(row[j], before[j - 2] + 1);
            }
        }
        before = std::move(above);
        above = std::move(row);
    }
    return above.back();
}

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

std::string_view nearest(std::string_view typed, std::span<const std::string_view> words)
{
    if (typed.empty() || typed.size() > kLongestWord) {
        return {};
    }
    std::string_view best;
    // A third of the characters may be wrong; one always may.
    std::size_t bestDistance = std::max<std::size_t>(typed.size() / 3, 1) + 1;
    for (const std::string_view word : words) {
        const std::size_t wordDistance = distance(typed, word);
        if (wordDistance < bestDistance && wordDistance < word.size()) {
            best = word;
            bestDistance = wordDistance;
        }
    }
    if (!best.empty()) {
        return best;
    }
    // "freq" for "frequency".
    const auto longer =
        std::ranges::find_if(words, [&](std::string_view word) { return typed.size() > 1 && word.starts_with(typed); });
    return longer == words.end() ? std::string_view() : *longer;
}

std::string didYouMean(std::string_view typed, std::span<const std::string_view> words)
{
    const std::string_view word = nearest(typed, words);
    return word.empty() ? "" : "; did you mean " + inQuotes(word) + "?";
}

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
