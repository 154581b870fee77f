#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "protocol/toml/Problem.h"
#include "station/plan/Plan.h"

namespace station::plan {

/// The operator's answers in a file: ID = answer, and a table per port for answers that differ between units.
class Answers
{
public:
    Answers() = default;

    /// Reads the text of a file of answers. Adds to `problems` what is wrong, such as an answer to a question that the
    /// plan does not ask.
    Answers(std::string_view text, const Plan& plan, protocol::toml_file::Problems& problems);

    /// @returns the answer as the question wants it.
    std::optional<std::string> find(const std::string& port, const std::string& id) const;

private:
    using Table = std::map<std::string, std::string, std::less<>>;

    Table all_;
    std::map<std::string, Table, std::less<>> perPort_;
};

/// Reads a file of answers. A file that cannot be read is a problem, too.
Answers readAnswers(const std::string& path, const Plan& plan, protocol::toml_file::Problems& problems);

/// Reads an answer as people give it.
/// @returns "yes" or "no", the number, the text or the choice; nothing for another kind of answer.
std::optional<std::string> parseAnswer(const Prompt& prompt, std::string_view text);

/// @returns the form of an answer: "yes or no", "a number", "a text", "left or right".
std::string describe(const Prompt& prompt);

}  // namespace station::plan
