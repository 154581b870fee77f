#define TOML_IMPLEMENTATION                          // the code of toml++, once
#define TOML_ASSERT(expression) static_assert(true)  // what it asserts of broken text, it also reports
#include "protocol/toml/TableReader.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <limits>
#include <map>
#include <span>
#include <tuple>
#include <utility>

#include "protocol/Quantity.h"
#include "protocol/Text.h"
#include "protocol/catalogue/Codec.h"

namespace protocol::toml_file {

namespace {

using Place = toml::source_position;

Problem at(const toml::source_position& place, std::string text)
{
    // A value without a place counts as standing at the beginning of the file.
    return {std::max<unsigned>(1, place.line), std::max<unsigned>(1, place.column), std::move(text)};
}

/// @returns `"next", "stop-group" or "stop"`.
std::string alternatives(std::span<const std::string_view> words)
{
    std::string list;
    for (std::size_t i = 0; i < words.size(); ++i) {
        list += fmt::format("{}\"{}\"", i == 0 ? "" : i + 1 < words.size() ? ", " : " or ", words[i]);
    }
    return list;
}

/// @returns "1", "0 to 255", "a number of at least 4".
std::string rangeText(std::int64_t minimum, std::int64_t maximum)
{
    if (maximum == std::numeric_limits<std::int64_t>::max()) {
        return fmt::format("a number of at least {}", minimum);
    }
    return minimum == maximum ? fmt::to_string(minimum) : fmt::format("{} to {}", minimum, maximum);
}

/// @returns what a value is, for the end of a message: "5", "\"5\"", "a table".
std::string shown(const toml::node& node)
{
    if (const auto* text = node.as_string()) {
        return fmt::format("\"{}\"", text->get());
    }
    if (const auto* integer = node.as_integer()) {
        return fmt::to_string(integer->get());
    }
    if (const auto* number = node.as_floating_point()) {
        return shortText(number->get());
    }
    if (const auto* flag = node.as_boolean()) {
        return flag->get() ? "true" : "false";
    }
    return node.is_table() ? "a table" : node.is_array() ? "an array" : "a date or a time";
}

/// @returns "1 ms", "10 s", "365 days".
std::string spanText(double seconds)
{
    const double days = seconds / 86400;
    return days >= 1 && days == std::floor(days) ? plural(static_cast<std::size_t>(days), "day")
           : seconds > 0 && seconds < 1          ? fmt::format("{} ms", shortText(seconds * 1000))
                                                 : fmt::format("{} s", shortText(seconds));
}

/// @returns what the parser's complaint means in a file of ours.
std::string explained(std::string_view complaint)
{
    struct Row {
        std::string_view part;
        std::string_view meaning;
    };
    static constexpr auto kRows = std::to_array<Row>({
        {"key or closing '}', saw '\\n'", "expected a table in braces on one line, got a line end in it"},
        {"closing '}', saw '\\n'", "expected a table in braces on one line, got a line end in it"},
        {"dangling comma", "expected no comma before the closing brace"},
        {"string: unescaped control", "expected the quotation mark that ends the text, got the end of the line"},
        {"string: encountered end-of-file", "expected the quotation mark that ends the text, got the end of the file"},
        {"could not determine value type", "expected a value, such as \"text\", 5, true, [ … ] or { … }"},
        {"expected value, saw", "expected a value behind '='"},
        {"expected '=', saw", "expected '=' behind the key"},
        {"closing ']', saw comma", "expected a value or ']', got a comma"},
        {"comma or closing ']'", "expected a comma or ']' behind the value"},
        {"comma or closing '}'", "expected a comma or '}' behind the value"},
        {"expected a comment or whitespace", "expected the end of the line"},
        {"array: encountered end-of-file", "expected ']' behind the list, got the end of the file"},
        {"encountered end-of-file", "expected more, got the end of the file"},
        {"leading zeroes", "expected a number without leading zeros"},
        {"UTF-8", "expected a file in UTF-8"},
        {"utf-8", "expected a file in UTF-8"},
    });
    for (const Row& row : kRows) {
        if (complaint.find(row.part) != std::string_view::npos) {
            return std::string(row.meaning);
        }
    }
    constexpr std::string_view kPrefix = "Error while parsing ";
    complaint.remove_prefix(complaint.starts_with(kPrefix) ? kPrefix.size() : 0);
    return fmt::format("expected a file in TOML's syntax; {}", complaint);
}

/// The parser recurses into nested tables, and each part of a key nests one more.
constexpr std::size_t kMostKeyParts = 16;

/// @returns the length of the comment or string at the beginning of `text`; 0 for anything else.
std::size_t opaqueLength(std::string_view text)
{
    const auto upTo = [text](std::size_t end) { return std::min(end, text.size()); };
    if (text.starts_with('#')) {
        return upTo(text.find('\n'));
    }
    if (!text.starts_with('"') && !text.starts_with('\'')) {
        return 0;
    }
    const std::string quotes(text.starts_with(std::string(3, text.front())) ? 3 : 1, text.front());
    const std::string stops = quotes.size() == 3 ? std::string() : "\n";
    std::size_t i = quotes.size();
    for (; i < text.size() && stops.find(text[i]) == std::string::npos; ++i) {
        if (text.substr(i).starts_with(quotes)) {
            return i + quotes.size();
        }
        if (text[i] == '\\' && text.front() == '"') {
            ++i;
        }
    }
    return upTo(i);
}

/// Passes each comment, string and other character to `visit`: the text from there on, its length and its place. Ends
/// when `visit` returns false.
template <class Visit>
void walk(std::string_view text, Visit visit)
{
    for (Place place{1, 1}; !text.empty();) {
        const std::size_t length = std::max<std::size_t>(1, opaqueLength(text));
        if (!visit(text, length, place)) {
            return;
        }
        for (const char each : text.substr(0, length)) {
            const bool begins = (static_cast<unsigned char>(each) & 0xC0) != 0x80;
            place = each == '\n' ? Place{place.line + 1, 1} : Place{place.line, place.column + (begins ? 1 : 0)};
        }
        text.remove_prefix(length);
    }
}

/// @returns whether the character may stand in a word without quotation marks.
bool isBare(char c)
{
    return c == '.' || c == '_' || c == '-' || (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') ||
           (c >= 'a' && c <= 'z');
}

/// @returns where a key with too many parts begins.
std::optional<Place> findDeepKey(std::string_view text)
{
    std::optional<Place> key;
    std::size_t parts = 1;
    walk(text, [&](std::string_view rest, std::size_t, const Place& place) {
        const char c = rest.front();
        key = key ? key : place;
        parts += c == '.' ? 1 : 0;
        if (!isBare(c) && std::string_view("\"' \t").find(c) == std::string_view::npos) {
            parts = 1;
            key.reset();
        }
        return parts <= kMostKeyParts;
    });
    return parts > kMostKeyParts ? key : std::nullopt;
}

/// What stands at a mistake and before it. The parser names the place of the mistake alone.
class Surroundings
{
public:
    Surroundings(std::string_view text, const Place& mistake) : wordAt(mistake)
    {
        walk(text, [&](std::string_view rest, std::size_t length, const Place& place) {
            const bool before = place < mistake;
            if (isBare(rest.front()) && (before || !word.empty() || place == mistake)) {
                wordAt = word.empty() ? place : wordAt;
                word += rest.front();
            } else if (before) {
                word.clear();
            }
            if (before) {
                take(rest, length, place);
            } else if (place == mistake && rest.starts_with('[')) {
                first = find(sections_, headerOf(rest));
            }
            return before || isBare(rest.front());
        });
    }

    /// Letters, digits, points and dashes at the mistake; empty for none.
    std::string word;
    Place wordAt;
    /// Where the key or section at the mistake has stood before.
    std::optional<Place> first;

    /// @returns where the innermost list begins that is open.
    std::optional<Place> list() const
    {
        const auto found =
            std::find_if(open_.rbegin(), open_.rend(), [](const Open& each) { return each.bracket == '['; });
        return found == open_.rend() ? std::nullopt : std::optional(found->at);
    }

private:
    using Keys = std::map<std::string, Place, std::less<>>;

    /// The file, or a list or table in brackets.
    struct Open {
        char bracket = 0;
        Place at;
        Keys keys;
    };

    static std::string_view headerOf(std::string_view rest) { return rest.substr(0, rest.find_first_of("]\n")); }

    static std::optional<Place> find(const Keys& keys, std::string_view key)
    {
        const auto found = keys.find(key);
        return found == keys.end() ? std::nullopt : std::optional(found->second);
    }

    void take(std::string_view rest, std::size_t length, const Place& place)
    {
        const char c = rest.front();
        if (c == '[' && open_.size() == 1 && key_.empty()) {
            sections_.try_emplace(std::string(headerOf(rest)), place);
            open_.front().keys.clear();
        }
        if (c == '=') {
            first = find(open_.back().keys, key_);
            open_.back().keys.try_emplace(key_, keyAt_);
        } else if (c == '[' || c == '{') {
            open_.push_back({c, place, {}});
        } else if ((c == ']' || c == '}') && open_.size() > 1) {
            open_.pop_back();
        }
        if (c == ',' || c == '{' || c == '}' || (c == '\n' && open_.size() == 1)) {
            key_.clear();
        } else if (isBare(c) || c == '"' || c == '\'' || c == '=') {
            keyAt_ = key_.empty() ? place : keyAt_;
            key_ += rest.substr(0, length);
        }
    }

    std::vector<Open> open_{Open{}};
    Keys sections_;
    std::string key_;
    Place keyAt_;
};

/// @returns the problem behind the parser's complaint.
Problem problemOf(const toml::parse_error& error, std::string_view text)
{
    const std::string_view complaint = error.description();
    const auto says = [complaint](std::string_view part) { return complaint.find(part) != std::string_view::npos; };
    const Surroundings found(text, error.source().begin);
    const auto placeText = [](const Place& place) {
        return fmt::format("line {}, column {}", place.line, place.column);
    };
    if (says("redefine existing")) {
        const std::size_t name = complaint.find('\'');
        return at(error.source().begin,
                  fmt::format("expected each key once, got {} again{}",
                              complaint.substr(name, complaint.find('\'', name + 1) + 1 - name),
                              found.first ? fmt::format("; first in {}", placeText(*found.first)) : ""));
    }
    const bool isText = std::ranges::any_of(found.word, [](char c) { return std::isalpha(c) != 0; }) ||
                        std::ranges::count(found.word, '.') > 1;
    if (isText && (says("boolean:") || says("integer:") || says("floating-point:") || says("value type"))) {
        return at(found.wordAt, fmt::format("expected a value, got {}; a text stands in quotation marks", found.word));
    }
    return at(
        error.source().begin,
        explained(complaint) +
            (says("array:") && found.list() ? fmt::format("; the list begins in {}", placeText(*found.list())) : ""));
}

}  // namespace

void sort(Problems& problems)
{
    std::ranges::stable_sort(problems, {},
                             [](const Problem& problem) { return std::tuple(problem.line, problem.column); });
}

std::string format(const std::string& file, const Problem& problem)
{
    return printable(problem.line == 0 ? fmt::format("{}: {}", file, problem.text)
                                       : fmt::format("{}:{}:{}: {}", file, problem.line, problem.column, problem.text));
}

toml::table parse(std::string_view text, Problems& problems)
{
    if (const auto place = findDeepKey(text)) {
        problems.push_back(at(*place, fmt::format("expected at most {} parts in a dotted key", kMostKeyParts)));
        return {};
    }
    try {
        return toml::parse(text);
    } catch (const toml::parse_error& error) {
        problems.push_back(problemOf(error, text));
        return {};
    }
}

void report(Problems& problems, const toml::node& node, std::string text)
{
    problems.push_back(at(node.source().begin, std::move(text)));
}

TableReader::TableReader(const toml::table& table, std::string what, Problems& problems, std::string path)
    : table_(table), what_(std::move(what)), problems_(problems), path_(std::move(path))
{
}

const toml::node* TableReader::look(std::string_view key, bool required, std::string_view kind)
{
    known_.emplace(key);
    const toml::node* found = table_.get(key);
    if (found == nullptr && required) {
        toml_file::report(problems_, table_,
                          fmt::format("expected the key {} with {} in the {}, got none", inQuotes(key), kind, what_));
    }
    return found;
}

const toml::node* TableReader::node(std::string_view key)
{
    return look(key, false, {});
}

std::optional<std::string> TableReader::optionalText(std::string_view key)
{
    const toml::node* found = look(key, false, "a text");
    if (found == nullptr) {
        return std::nullopt;
    }
    if (!found->is_string()) {
        mistyped(key, *found, "a text");
        return std::nullopt;
    }
    return found->as_string()->get();
}

std::string TableReader::text(std::string_view key, bool required)
{
    if (look(key, required, "a text") == nullptr) {
        return {};
    }
    auto found = optionalText(key).value_or("");
    if (required && found.empty() && table_.get(key)->is_string()) {
        mistyped(key, *table_.get(key), "a text that is not empty");
    }
    return found;
}

std::optional<std::int64_t> TableReader::integer(std::string_view key, bool required, std::int64_t minimum,
                                                 std::int64_t maximum)
{
    const toml::node* found = look(key, required, "an integer");
    if (found == nullptr) {
        return std::nullopt;
    }
    if (!found->is_integer()) {
        mistyped(key, *found, "an integer");
        return std::nullopt;
    }
    const std::int64_t value = found->as_integer()->get();
    if (value < minimum || value > maximum) {
        mistyped(key, *found, rangeText(minimum, maximum));
        return std::nullopt;
    }
    return value;
}

std::optional<double> TableReader::number(std::string_view key, bool required)
{
    const toml::node* found = look(key, required, "a number");
    if (found == nullptr) {
        return std::nullopt;
    }
    const auto value = found->is_number() ? found->value<double>() : std::nullopt;
    if (!value || *value != *value) {
        mistyped(key, *found, "a number");
        return std::nullopt;
    }
    return value;
}

std::optional<double> TableReader::seconds(std::string_view key, double least, double most)
{
    const toml::node* found = node(key);
    if (found == nullptr) {
        return std::nullopt;
    }
    const auto* text = found->as_string();
    const auto value = text != nullptr      ? parseSeconds(text->get())
                       : found->is_number() ? found->value<double>()
                                            : std::nullopt;
    if (!value || !(*value >= least && *value <= most)) {
        mistyped(key, *found,
                 fmt::format("a time from {} up to {}, as a number of seconds or a text with unit ms, s, min or h",
                             spanText(least), spanText(most)));
        return std::nullopt;
    }
    return value;
}

bool TableReader::boolean(std::string_view key, bool otherwise)
{
    const toml::node* found = look(key, false, {});
    if (found == nullptr) {
        return otherwise;
    }
    if (!found->is_boolean()) {
        mistyped(key, *found, "true or false");
        return otherwise;
    }
    return found->as_boolean()->get();
}

std::optional<std::size_t> TableReader::oneOf(std::string_view key, const std::vector<std::string_view>& words,
                                              bool required)
{
    if (look(key, required, alternatives(words)) == nullptr) {
        return std::nullopt;
    }
    const auto word = optionalText(key);
    if (!word) {
        return std::nullopt;
    }
    const auto found = std::ranges::find(words, *word);
    if (found == words.end()) {
        mistyped(key, *table_.get(key), alternatives(words));
        return std::nullopt;
    }
    return static_cast<std::size_t>(found - words.begin());
}

const toml::table* TableReader::table(std::string_view key, bool required)
{
    const toml::node* found = look(key, required, "a table");
    if (found == nullptr) {
        return nullptr;
    }
    if (!found->is_table()) {
        mistyped(key, *found, "a table, { … }");
        return nullptr;
    }
    return found->as_table();
}

std::vector<const toml::table*> TableReader::tables(std::string_view key, bool required)
{
    std::vector<const toml::table*> list;
    const toml::node* found = look(key, required, "an array of tables");
    if (found == nullptr) {
        return list;
    }
    if (!found->is_array()) {
        mistyped(key, *found, fmt::format("an array of tables, [[{}{}]] or [ {{ … }}, … ]", path_, key));
        return list;
    }
    for (const toml::node& element : *found->as_array()) {
        if (element.is_table()) {
            list.push_back(element.as_table());
        } else {
            mistyped(key, element, "tables only, { … }");
        }
    }
    return list;
}

void TableReader::finish()
{
    const std::vector<std::string_view> words(known_.begin(), known_.end());
    for (const auto& [key, value] : table_) {
        if (!known_.contains(key.str())) {
            const std::string hint = didYouMean(key.str(), words);
            problems_.push_back(at(key.source().begin,
                                   hint.empty()
                                       ? fmt::format("unknown key {}: the {} takes {}", inQuotes(key.str()), what_,
                                                     words.empty() ? "none" : fmt::format("{}", fmt::join(words, ", ")))
                                       : fmt::format("unknown key {}{}", inQuotes(key.str()), hint)));
        }
    }
}

void TableReader::mistyped(std::string_view key, const toml::node& value, std::string_view expected)
{
    toml_file::report(problems_, value, fmt::format("{}: expected {}, got {}", inQuotes(key), expected, shown(value)));
}

void TableReader::report(std::string_view key, std::string text)
{
    const toml::node* found = table_.get(key);
    toml_file::report(problems_, found != nullptr ? *found : static_cast<const toml::node&>(table_), std::move(text));
}

}  // namespace protocol::toml_file
