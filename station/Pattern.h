#pragma once

#include <string>
#include <string_view>

#include "protocol/Errors.h"

/// Regular expressions of plans, in RE2's syntax: the time of a match is in proportion to the text, and neither pattern
/// nor text can exhaust the stack.
namespace station {

/// RE2 does not take the pattern; the text says why: "look-ahead '(?=' is not supported".
class PatternError : public protocol::UserError
{
public:
    PatternError(const std::string& problem, bool inNumbers) : UserError(problem), inNumbers_(inNumbers) {}

    /// @returns whether the pattern may be sound with other values in its ranges and repetitions, such as {5,2}.
    bool inNumbers() const { return inNumbers_; }

private:
    bool inNumbers_;
};

/// Throws PatternError unless `pattern` is sound.
void checkPattern(std::string_view pattern);

/// @returns whether all of `text` matches the pattern, which is UTF-8. A text that is not UTF-8 is taken for Latin-1.
/// Throws PatternError.
bool matches(std::string_view text, std::string_view pattern);

/// @returns a pattern that `text` alone matches.
std::string literalPattern(std::string_view text);

}  // namespace station
