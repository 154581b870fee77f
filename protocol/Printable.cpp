#include "protocol/Printable.h"

#include <array>
#include <cstdio>

namespace protocol {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

/// Takes the first character off; U+FFFD for a byte that begins none.
char32_t takeCharacter(std::string_view& text)
{
    const auto byteAt = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byteAt(0);
    const std::size_t size = first < 0x80   ? 1
                             : first < 0xC2 ? 0
                             : first < 0xE0 ? 2
                             : first < 0xF0 ? 3
                             : first < 0xF5 ? 4
                                            : 0;
    char32_t character = size < 2 ? first : first & (0x7FU >> size);
    bool valid = size > 0 && size <= text.size();
    for (std::size_t i = 1; valid && i < size; ++i) {
        valid = (byteAt(i) & 0xC0) == 0x80;
        character = character << 6 | (byteAt(i) & 0x3FU);
    }
    const bool overlong = (size == 3 && character < 0x800) || (size == 4 && character < 0x10000);
    const bool surrogate = character >= 0xD800 && character < 0xE000;
    valid = valid && !overlong && !surrogate && character <= 0x10FFFF;
    text.remove_prefix(valid ? size : 1);
    return valid ? character : kReplacement;
}

/// @returns whether a terminal obeys the character, a reader is misled by it, or XML forbids it.
bool isUnsafe(char32_t c)
{
    const bool control = c < 0x20 || (c >= 0x7F && c < 0xA0);
    const bool turnsText =
        (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069) || c == 0x200E || c == 0x200F || c == 0x061C;
    const bool breaksLine = c == 0x2028 || c == 0x2029;
    const bool noCharacter = (c & 0xFFFE) == 0xFFFE || (c >= 0xFDD0 && c <= 0xFDEF);
    return control || turnsText || breaksLine || noCharacter;
}

void append(std::string& out, char32_t c)
{
    const auto tail = [&](int shift) { out += static_cast<char>(0x80 | (c >> shift & 0x3F)); };
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | c >> 6);
        tail(0);
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | c >> 12);
        tail(6);
        tail(0);
    } else {
        out += static_cast<char>(0xF0 | c >> 18);
        tail(12);
        tail(6);
        tail(0);
    }
}

/// Calls `escape(out, character)` for what is unsafe; the rest stays as it is.
template <class Escape>
std::string escaped(std::string_view text, Escape escape)
{
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const char32_t character = takeCharacter(text);
        isUnsafe(character) ? escape(out, character) : append(out, character);
    }
    return out;
}

void appendPicture(std::string& out, char32_t character)
{
    append(out, character < 0x20 ? 0x2400 + character : character == 0x7F ? 0x2421 : kReplacement);
}

void appendJsonEscape(std::string& out, char32_t character)
{
    // The line ends of JSON's layout; in its strings they are escaped.
    if (character < 0x20) {
        append(out, character);
        return;
    }
    std::array<char, 16> text{};
    const auto number = static_cast<unsigned>(character);
    if (number < 0x10000) {
        std::snprintf(text.data(), text.size(), "\\u%04x", number);
    } else {
        std::snprintf(text.data(), text.size(), "\\u%04x\\u%04x", 0xD7C0 + (number >> 10), 0xDC00 + (number & 0x3FF));
    }
    out += text.data();
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

}  // namespace protocol
