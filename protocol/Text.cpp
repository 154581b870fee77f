#include "protocol/Text.h"

#include <fmt/format.h>
#include <glib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <numeric>
#include <system_error>
#include <vector>

namespace protocol {

namespace {

constexpr gunichar kReplacement = 0xFFFD;

/// Longer words are not typed by hand, and the work grows with the square of the length.
constexpr std::size_t kLongestWord = 64;

/// Takes the first character off; U+FFFD for a byte that begins none.
gunichar takeCharacter(std::string_view& text)
{
    const gunichar character =
        text[0] == '\0' ? 0 : g_utf8_get_char_validated(text.data(), static_cast<gssize>(text.size()));
    const bool valid = character <= 0x10FFFF;
    text.remove_prefix(valid ? static_cast<std::size_t>(g_unichar_to_utf8(character, nullptr)) : 1);
    return valid ? character : kReplacement;
}

/// @returns whether a terminal obeys the character, it misleads a reader, or XML forbids it.
bool isUnsafe(gunichar c)
{
    const bool control = c < 0x20 || (c >= 0x7F && c < 0xA0);
    const bool turnsText =
        (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069) || c == 0x200E || c == 0x200F || c == 0x061C;
    const bool breaksLine = c == 0x2028 || c == 0x2029;
    const bool noCharacter = (c & 0xFFFE) == 0xFFFE || (c >= 0xFDD0 && c <= 0xFDEF);
    return control || turnsText || breaksLine || noCharacter;
}

void append(std::string& out, gunichar c)
{
    std::array<char, 6> bytes{};
    out.append(bytes.data(), static_cast<std::size_t>(g_unichar_to_utf8(c, bytes.data())));
}

/// Calls `escape(out, character)` for unsafe characters; the others stay.
template <class Escape>
std::string escaped(std::string_view text, Escape escape)
{
    std::string out;
    out.reserve(text.size());
    for (;;) {
        const auto* plain = std::ranges::find_if_not(text, [](char c) { return c >= ' ' && c <= '~'; });
        out.append(text.begin(), plain);
        text.remove_prefix(static_cast<std::size_t>(plain - text.begin()));
        if (text.empty()) {
            return out;
        }
        const gunichar character = takeCharacter(text);
        isUnsafe(character) ? escape(out, character) : append(out, character);
    }
}

void appendPicture(std::string& out, gunichar c)
{
    append(out, c < 0x20 ? 0x2400 + c : c == 0x7F ? 0x2421 : kReplacement);
}

void appendJsonEscape(std::string& out, gunichar c)
{
    if (c < 0x20) {
        // The line ends of JSON's layout; in its strings they are escaped already.
        append(out, c);
    } else if (c < 0x10000) {
        out += fmt::format("\\u{:04x}", c);
    } else {
        out += fmt::format("\\u{:04x}\\u{:04x}", 0xD7C0 + (c >> 10), 0xDC00 + (c & 0x3FF));
    }
}

/// @returns how many characters to insert, delete, change or swap with their neighbour.
std::size_t distance(std::string_view one, std::string_view other)
{
    const auto same = [](char a, char b) { return g_ascii_tolower(a) == g_ascii_tolower(b); };
    std::vector<std::size_t> before;
    std::vector<std::size_t> above(other.size() + 1);
    std::iota(above.begin(), above.end(), std::size_t{0});
    for (std::size_t i = 1; i <= one.size(); ++i) {
        std::vector<std::size_t> row(other.size() + 1, i);
        for (std::size_t j = 1; j <= other.size(); ++j) {
            const std::size_t changed = same(one[i - 1], other[j - 1]) ? 0 : 1;
            row[j] = std::min({above[j] + 1, row[j - 1] + 1, above[j - 1] + changed});
            if (i > 1 && j > 1 && same(one[i - 1], other[j - 2]) && same(one[i - 2], other[j - 1])) {
                row[j] = std::min(row[j], before[j - 2] + 1);
            }
        }
        before = std::move(above);
        above = std::move(row);
    }
    return above.back();
}

/// @returns how many columns of a terminal `text` takes.
std::size_t columnsOf(std::string_view text)
{
    std::size_t columns = 0;
    bool escaping = false;
    for (const char c : text) {
        escaping = escaping || c == '\x1b';
        columns += !escaping && (static_cast<unsigned char>(c) & 0xC0) != 0x80 ? 1 : 0;
        escaping = escaping && c != 'm';
    }
    return columns;
}

}  // namespace

std::string printable(std::string_view text)
{
    return escaped(text, appendPicture);
}

std::string printableJson(std::string_view json)
{
    return escaped(json, appendJsonEscape);
}

std::string inQuotes(std::string_view text)
{
    return fmt::format("'{}'", text);
}

std::string unreadable(int error)
{
    return error == ENOENT ? "no such file" : "cannot be read: " + std::generic_category().message(error);
}

std::string plural(std::size_t number, std::string_view noun)
{
    return fmt::format("{} {}{}", number, noun, number == 1 ? "" : "s");
}

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
    // "freq" for "frequency"; "retry" for "retries", since the last letter often changes.
    const std::string_view stem = typed.substr(0, typed.size() < 4 ? typed.size() : typed.size() - 1);
    bestDistance = std::string_view::npos;
    for (const std::string_view word : words) {
        if (typed.size() > 1 && word.starts_with(stem) && distance(typed, word) < bestDistance) {
            best = word;
            bestDistance = distance(typed, word);
        }
    }
    return best;
}

std::string didYouMean(std::string_view typed, std::span<const std::string_view> words)
{
    const std::string_view word = nearest(typed, words);
    return word.empty() ? "" : fmt::format("; did you mean '{}'?", word);
}

std::string table(const std::vector<std::vector<std::string>>& rows)
{
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], columnsOf(row[i]));
        }
    }
    std::string text;
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += row[i] + std::string(widths[i] - columnsOf(row[i]) + 2, ' ');
        }
        text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return text;
}

}  // namespace protocol
