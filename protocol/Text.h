#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Texts for people, in all host code. fmt::format and fmt::join do the rest.
namespace protocol {

/// @returns `text` as one line of valid UTF-8 that no terminal, browser or XML reader obeys: control characters become
/// their pictures (U+2400 …). U+FFFD replaces bytes that are not UTF-8, C1 controls, noncharacters and characters that
/// change the direction of writing.
std::string printable(std::string_view text);

/// The same for JSON, whose line ends stay: it escapes the characters as \uXXXX, so a reader of JSON gets them back.
std::string printableJson(std::string_view json);

/// @returns a word of the user as messages show it: 'word'. (Not "quoted": the compiler would find std::quoted, too.)
std::string inQuotes(std::string_view text);

/// @returns why a file cannot be read, for an errno: "no such file", else "cannot be read: REASON".
std::string unreadable(int error);

/// @returns "1 step", "2 steps".
std::string plural(std::size_t number, std::string_view noun);

/// @returns the word that the user probably meant by `typed`; empty if none is near.
std::string_view nearest(std::string_view typed, std::span<const std::string_view> words);

/// @returns the end of a complaint, "; did you mean 'up'?"; empty if no word is near.
std::string didYouMean(std::string_view typed, std::span<const std::string_view> words);

/// @returns the rows as lines whose columns are aligned, two blanks apart. A character takes one column, an escape
/// sequence that sets a colour none.
std::string table(const std::vector<std::vector<std::string>>& rows);

}  // namespace protocol
