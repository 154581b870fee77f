#include "platform/bench/JsonText.h"

#include "protocol/Text.h"

namespace bench {
namespace {

// Values are copied by recursion: without a limit, many brackets would exhaust the stack.
constexpr int kDeepestNesting = 32;

/// Messages of the library begin with an identifier in brackets.
std::string withoutIdentifier(const std::string& message)
{
    const auto end = message.find("] ");
    return end == std::string::npos ? message : message.substr(end + 2);
}

}  // namespace

nlohmann::json parseJson(std::string_view text)
{
    const auto limitDepth = [](int depth, nlohmann::json::parse_event_t, nlohmann::json&) {
        if (depth > kDeepestNesting) {
            throw JsonError("nested deeper than " + std::to_string(kDeepestNesting) + " levels");
        }
        return true;
    };
    try {
        return nlohmann::json::parse(text, limitDepth);
    } catch (const nlohmann::json::exception& error) {
        throw JsonError("not JSON: " + protocol::printable(withoutIdentifier(error.what())));
    }
}

}  // namespace bench
