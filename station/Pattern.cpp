#include "station/Pattern.h"

#include <fmt/format.h>
#include <glib.h>
#include <re2/re2.h>

namespace station {

namespace {

/// @returns `text` when it is UTF-8, else its bytes as the characters of Latin-1.
std::string inUtf8(std::string_view text)
{
    if (g_utf8_validate_len(text.data(), text.size(), nullptr) != FALSE) {
        return std::string(text);
    }
    std::string utf8;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            utf8 += c;
        } else {
            utf8 += static_cast<char>(0xC0 | byte >> 6);
            utf8 += static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
    return utf8;
}

/// @returns the name that other dialects have for the syntax at which RE2 stopped.
std::string nameOf(const std::string& syntax, std::string_view behind)
{
    if (syntax == "(?=" || syntax == "(?!") {
        return "look-ahead";
    }
    if (syntax == "(?<" && (behind.starts_with('=') || behind.starts_with('!'))) {
        return "look-behind";
    }
    if (syntax == "\\k" || (syntax.size() == 2 && syntax[1] >= '1' && syntax[1] <= '9')) {
        return "back-reference";
    }
    return syntax.starts_with('\\') ? "escape" : "group";
}

/// Throws PatternError unless RE2 took the pattern.
void require(const RE2& compiled)
{
    switch (compiled.error_code()) {
        case RE2::NoError:
            return;
        case RE2::ErrorBadEscape:
        case RE2::ErrorBadPerlOp: {
            const std::string& syntax = compiled.error_arg();
            const auto place = compiled.pattern().find(syntax);
            const std::string behind =
                place == std::string::npos ? "" : compiled.pattern().substr(place + syntax.size());
            throw PatternError(fmt::format("{} '{}' is not supported", nameOf(syntax, behind), syntax), false);
        }
        case RE2::ErrorBadCharRange:
            throw PatternError(fmt::format("expected an ascending range, got '{}'", compiled.error_arg()), true);
        case RE2::ErrorRepeatSize:
            throw PatternError(
                fmt::format("expected at most 1000 repetitions in all, the smaller number first, got '{}'",
                            compiled.error_arg()),
                true);
        case RE2::ErrorMissingParen:
        case RE2::ErrorUnexpectedParen:
            throw PatternError("expected a ')' for each '(', and '\\(' for the character itself", false);
        case RE2::ErrorMissingBracket:
            throw PatternError("expected a ']' for each '[', and '\\[' for the character itself", false);
        case RE2::ErrorRepeatArgument:
            throw PatternError(fmt::format("expected something to repeat before '{}'", compiled.error_arg()), false);
        case RE2::ErrorTrailingBackslash:
            throw PatternError("expected a character behind '\\' at the end", false);
        default:
            throw PatternError(compiled.error(), false);
    }
}

RE2 compile(std::string_view pattern)
{
    RE2::Options options;
    options.set_log_errors(false);
    return {re2::StringPiece(pattern.data(), pattern.size()), options};
}

}  // namespace

void checkPattern(std::string_view pattern)
{
    require(compile(pattern));
}

bool matches(std::string_view text, std::string_view pattern)
{
    const RE2 compiled = compile(pattern);
    require(compiled);
    return RE2::FullMatch(inUtf8(text), compiled);
}

std::string literalPattern(std::string_view text)
{
    std::string pattern;
    for (const char c : inUtf8(text)) {
        if (std::string_view("^$\\.*+?()[]{}|/").find(c) != std::string_view::npos) {
            pattern += '\\';
        }
        pattern += c;
    }
    return pattern;
}

}  // namespace station
