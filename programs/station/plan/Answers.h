#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "protocol/toml/Problem.h"
#include "station/plan/Plan.h"

namespace programs::station_tool {

/// The operator's answers, written down beforehand: ID = answer, and a table per port for what differs between units.
class Answers
{
public:
    Answers() = default;

    /// Reads the text of a file of answers. Whatever is wrong with it, an answer to a question that the plan does not
    /// ask included, goes into `problems`.
    Answers(std::string_view text, const station::plan::Plan& plan, protocol::toml_file::Problems& problems);

    /// @returns the answer as the question wants it.
    std::optional<std::string> find(const std::string& port, const std::string& id) const;

private:
    using Table = std::map<std::string, std::string, std::less<>>;

    Table all_;
    std::map<std::string, Table, std::less<>> perPort_;
};

/// Reads an answer as people give it.
/// @returns "yes" or "no", the number, or the text; nothing when it is none.
std::optional<std::string> parseAnswer(station::plan::Prompt::Kind kind, std::string_view text);

/// @returns what an answer of this kind looks like: "yes or no", "a number", "a text".
const char* describe(station::plan::Prompt::Kind kind);

}  // namespace programs::station_tool
