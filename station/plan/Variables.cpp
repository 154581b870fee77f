#include "station/plan/Variables.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>

#include "protocol/Errors.h"
#include "protocol/Text.h"
#include "protocol/catalogue/Codec.h"

namespace station::plan {

namespace {

/// Calls `plain` and `variable` for the parts of `text` in turn. A "${" that is not closed is plain text.
void split(std::string_view text, const std::function<void(std::string_view)>& plain,
           const std::function<void(std::string_view)>& variable)
{
    while (!text.empty()) {
        const auto begin = text.find("${");
        const auto end = begin == std::string_view::npos ? begin : text.find('}', begin);
        if (end == std::string_view::npos) {
            plain(text);
            return;
        }
        plain(text.substr(0, begin));
        variable(text.substr(begin + 2, end - begin - 2));
        text.remove_prefix(end + 1);
    }
}

}  // namespace

std::vector<std::string> variablesIn(std::string_view text)
{
    std::vector<std::string> names;
    split(
        text, [](std::string_view) {}, [&](std::string_view name) { names.emplace_back(name); });
    return names;
}

std::string substitute(std::string_view text, const Variables& variables)
{
    std::string result;
    split(
        text, [&](std::string_view part) { result += part; },
        [&](std::string_view name) {
            const auto found = variables.find(name);
            if (found == variables.end()) {
                throw protocol::UserError(
                    fmt::format("nothing has been stored as {} in this run", protocol::inQuotes(name)));
            }
            result += found->second;
        });
    return result;
}

std::string masked(std::string_view text)
{
    std::string result;
    split(
        text, [&](std::string_view part) { result.append(part.size(), protocol::catalogue::kMask); },
        [&](std::string_view name) { result += fmt::format("${{{}}}", name); });
    return result;
}

bool isVariableName(std::string_view name)
{
    return !name.empty() && std::ranges::all_of(name, [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
    });
}

}  // namespace station::plan
