#pragma once

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>

namespace bench {

/// A text that is no JSON; what() says in one line where it ceases to be.
class JsonError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Reads JSON that somebody else has written.
/// @throws JsonError when it is none, or nested deeper than any value of the bench.
nlohmann::json parseJson(std::string_view text);

/// @returns `value` as JSON in one line; bytes that are no UTF-8 become U+FFFD.
template <class Json>
std::string toText(const Json& value)
{
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace bench
