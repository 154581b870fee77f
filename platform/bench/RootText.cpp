#include "platform/bench/RootText.h"

#include <algorithm>
#include <cctype>
#include <optional>

namespace bench {
namespace {

/// A shell writes a quote within single quotes so: close the quotes, a quote, open the quotes.
constexpr std::string_view kQuoteInQuotes = R"('\'')";

bool isPlain(std::string_view text)
{
    return std::ranges::all_of(text, [](unsigned char character) {
        return std::isalnum(character) != 0 || character == '/' || character == '.' || character == '_' ||
               character == '-';
    });
}

std::string inQuotes(std::string_view text)
{
    std::string result = "'";
    for (const char character : text) {
        if (character == '\'') {
            result += kQuoteInQuotes;
        } else {
            result += character;
        }
    }
    return result + "'";
}

bool hasRoot(std::string_view path, std::string_view root)
{
    return !root.empty() && path.starts_with(root) && (path.size() == root.size() || path[root.size()] == '/');
}

struct Quoted {
    std::string text;  ///< what the shell reads
    std::size_t size;  ///< how much of the command it takes
};

/// Reads a text in single quotes at the beginning of `command`.
std::optional<Quoted> readQuoted(std::string_view command)
{
    Quoted result{"", 1};
    while (result.size < command.size()) {
        const std::string_view rest = command.substr(result.size);
        if (rest.starts_with(kQuoteInQuotes)) {
            result.text += '\'';
            result.size += kQuoteInQuotes.size();
        } else if (rest.front() == '\'') {
            ++result.size;
            return result;
        } else {
            result.text += rest.front();
            ++result.size;
        }
    }
    return std::nullopt;
}

}  // namespace

std::string pathLessRoot(std::string_view path, std::string_view root)
{
    return std::string(hasRoot(path, root) ? path.substr(root.size()) : path);
}

std::string commandLessRoot(std::string_view command, std::string_view root)
{
    std::string result;
    bool atStart = true;  // of a word
    while (!command.empty()) {
        if (command.front() == '\'') {
            const auto word = readQuoted(command);
            if (word && hasRoot(word->text, root)) {
                const std::string path = pathLessRoot(word->text, root);
                result += isPlain(path) ? path : inQuotes(path);
                command.remove_prefix(word->size);
                atStart = false;
                continue;
            }
        }
        if (atStart && hasRoot(command, root)) {
            command.remove_prefix(root.size());
        }
        if (command.empty()) {
            break;
        }
        result += command.front();
        atStart = command.front() == ' ' || command.front() == '=' || command.front() == '>';
        command.remove_prefix(1);
    }
    return result;
}

}  // namespace bench
