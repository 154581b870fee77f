#pragma once

#include <string>
#include <string_view>

namespace protocol {

/// @returns a word of the user as messages show it: 'word'. (Not "quoted": std::quoted would be found as well.)
inline std::string inQuotes(std::string_view text)
{
    return "'" + std::string(text) + "'";
}

}  // namespace protocol
