#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace programs {

/// The layout of --help: verbs with the first line of their description, options in two columns of which the second is
/// wrapped, the options that every verb takes named with each.
class HelpFormatter : public CLI::Formatter
{
public:
    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override;
};

/// @returns "--port PORT", "--json", "COMMAND".
std::string signatureOf(const CLI::Option& option);

/// @returns the description of an option or argument, with its values and its default.
std::string meaningOf(const CLI::Option& option);

/// @returns "engineering-station send [OPTIONS] COMMAND [ARGUMENT...]".
std::string usageOf(const CLI::App& verb);

/// Breaks `text` into lines of at most `width` characters at its blanks. Its own line ends stay, and so do lines that
/// begin with a blank.
std::vector<std::string> wrapped(const std::string& text, std::size_t width);

}  // namespace programs
