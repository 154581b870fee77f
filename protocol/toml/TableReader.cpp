#include "protocol/toml/TableReader.h"

#include <algorithm>
#include <limits>
#include <span>
#include <tuple>
#include <utility>

#include "protocol/Text.h"
#include "protocol/catalogue/Codec.h"

namespace protocol::toml_file {

namespace {

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
        list += i == 0 ? "" : i + 1 < words.size() ? ", " : " or ";
        list += '"' + std::string(words[i]) + '"';
    }
    return list;
}

/// @returns "1", "0 to 255", "0 or more".
std::string rangeText(std::int64_t minimum, std::int64_t maximum)
{
    const std::string text = std::to_string(minimum);
    if (maximum == std::numeric_limits<std::int64_t>::max()) {
        return "a number of at least " + text;
    }
    return minimum == maximum ? text : text + " to " + std::to_string(maximum);
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

/// @returns where a key with too many parts begins.
std::optional<toml::source_position> findDeepKey(std::string_view text)
{
    toml::source_position place{1, 1};
    toml::source_position key = place;
    std::size_t parts = 1;
    while (!text.empty()) {
        const char c = text.front();
        const std::size_t length = std::max<std::size_t>(1, opaqueLength(text));
        if (c == '.' && ++parts > kMostKeyParts) {
            return key;
        }
        for (const char each : text.substr(0, length)) {
            const bool begins = (static_cast<unsigned char>(each) & 0xC0) != 0x80;
            place = each == '\n' ? toml::source_position{place.line + 1, 1}
                                 : toml::source_position{place.line, place.column + (begins ? 1 : 0)};
        }
        const bool ofKey = c == '"' || c == '\'' || c == '.' || c == '_' || c == '-' || c == ' ' || c == '\t' ||
                           (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
        if (!ofKey) {
            parts = 1;
            key = place;
        }
        text.remove_prefix(length);
    }
    return std::nullopt;
}

}  // namespace

void sort(Problems& problems)
{
    std::ranges::stable_sort(problems, {},
                             [](const Problem& problem) { return std::tuple(problem.line, problem.column); });
}

std::string format(const std::string& file, const Problem& problem)
{
    return printable(file + ":" + std::to_string(problem.line) + ":" + std::to_string(problem.column) + ": " +
                     problem.text);
}

toml::table parse(std::string_view text, Problems& problems)
{
    if (const auto place = findDeepKey(text)) {
        problems.push_back(at(*place, "expected at most " + std::to_string(kMostKeyParts) + " parts in a dotted key"));
        return {};
    }
    try {
        return toml::parse(text);
    } catch (const toml::parse_error& error) {
        std::string what(error.description());
        if (what.find("closing '}'") != std::string::npos) {
            what += "; a table in braces stands on one line";
        }
        problems.push_back(at(error.source().begin, std::move(what)));
        return {};
    }
}

void report(Problems& problems, const toml::node& node, std::string text)
{
    problems.push_back(at(node.source().begin, std::move(text)));
}

TableReader::TableReader(const toml::table& table, std::string what, Problems& problems)
    : table_(table), what_(std::move(what)), problems_(problems)
{
}

const toml::node* TableReader::look(std::string_view key, bool required, std::string_view kind)
{
    known_.emplace(key);
    const toml::node* found = table_.get(key);
    if (found == nullptr && required) {
        toml_file::report(problems_, table_,
                          "the " + what_ + " has no " + inQuotes(key) + ": expected " + std::string(kind));
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
        toml_file::report(problems_, *found, inQuotes(key) + ": expected a text");
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
        report(key, inQuotes(key) + " is empty");
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
        toml_file::report(problems_, *found, inQuotes(key) + ": expected an integer");
        return std::nullopt;
    }
    const std::int64_t value = found->as_integer()->get();
    if (value < minimum || value > maximum) {
        toml_file::report(
            problems_, *found,
            inQuotes(key) + ": expected " + rangeText(minimum, maximum) + ", got " + std::to_string(value));
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
        toml_file::report(problems_, *found, inQuotes(key) + ": expected a number");
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
        toml_file::report(problems_, *found, inQuotes(key) + ": expected true or false");
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
        report(key, inQuotes(key) + ": expected " + alternatives(words) + ", got \"" + *word + '"');
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
        toml_file::report(problems_, *found, inQuotes(key) + ": expected a table");
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
        toml_file::report(problems_, *found,
                          inQuotes(key) + ": expected an array of tables, [[" + std::string(key) + "]]");
        return list;
    }
    for (const toml::node& element : *found->as_array()) {
        if (element.is_table()) {
            list.push_back(element.as_table());
        } else {
            toml_file::report(problems_, element, inQuotes(key) + " holds something that is not a table");
        }
    }
    return list;
}

void TableReader::finish()
{
    const std::vector<std::string_view> words(known_.begin(), known_.end());
    for (const auto& [key, value] : table_) {
        if (!known_.contains(key.str())) {
            problems_.push_back(at(key.source().begin, "the " + what_ + " has no key " + inQuotes(key.str()) +
                                                           protocol::didYouMean(key.str(), words)));
        }
    }
}

void TableReader::report(std::string_view key, std::string text)
{
    const toml::node* found = table_.get(key);
    toml_file::report(problems_, found != nullptr ? *found : static_cast<const toml::node&>(table_), std::move(text));
}

}  // namespace protocol::toml_file
