#pragma once

#include <string>
#include <string_view>

namespace fuzz {

/// Cuts the text before the first `separator` off `text`, and the separator with it.
/// @returns all of it when there is none.
inline std::string takeWord(std::string_view& text, char separator)
{
    const std::size_t end = text.find(separator);
    const std::string word(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return word;
}

}  // namespace fuzz
