#pragma once

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>

namespace bench {

/// A text that is not JSON. The message says in one line where the error is.
class JsonError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Reads JSON from outside.
/// @throws JsonError if the text is not JSON, or nested more deeply than any value of the bench.
nlohmann::json parseJson(std::string_view text);

/// @returns `value` as JSON in one line. U+FFFD replaces bytes that are not UTF-8.
template <class Json>
std::string toText(const Json& value)
{
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace bench
