#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "protocol/Errors.h"

/// The command line of all programs. A program with verbs is a tree of CLI::App; "verb" is any node of it.
///
/// The type name of an option says which values it takes, and completion reads it: type_name("FILE"), "DIR", "PORT",
/// "COMMAND" (a GROUP.COMMAND and its arguments), "KEY"; CLI::IsMember names the values themselves. A verb's
/// description begins with the line for the list of verbs; the verb's own help shows the other lines too.
namespace programs {

/// Prints the program's name and `message` as the one line on standard error that an error gets.
void complain(const char* program, const std::string& message);

/// Sets the layout of the help, and adds --help and --version. To be called before verbs are added, which inherit them.
void setUpHelp(CLI::App& app);

/// Reads the command line into the options of `app`. The options of a verb may stand before the verb.
/// @throws CLI::ParseError
void readCommandLine(CLI::App& app, int argc, char** argv);

/// @returns the mistake in the command line in our own words, and the help to read: CLI11's own texts name types and
/// limits that the user has not seen.
std::string explain(const CLI::App& app, const CLI::ParseError& error);

/// Reads the command line. Prints what is asked for, or the mistake.
/// @returns the exit status when the program has nothing left to do: --help, --version or wrong use.
std::optional<int> parse(CLI::App& app, int argc, char** argv);

/// A time without end on the command line: a year.
inline constexpr double kForEver = 86400.0 * 365;

/// @returns a check for a number of seconds from 0 to `most`.
CLI::Validator secondsUpTo(double most);

/// @returns "engineering-station plan run".
std::string pathOf(const CLI::App& verb);

/// @returns the first line of a verb's description, and the other lines.
std::string titleOf(const CLI::App& verb);
std::string detailsOf(const CLI::App& verb);

/// @returns the verbs below a verb that the help shows.
std::vector<const CLI::App*> verbsOf(const CLI::App& app);

/// @returns the verb's own options; its arguments are not among them.
std::vector<const CLI::Option*> optionsOf(const CLI::App& verb);

/// @returns the arguments of a verb.
std::vector<const CLI::Option*> positionalsOf(const CLI::App& verb);

/// @returns the options of the verbs above, without --help and --version.
std::vector<const CLI::Option*> inheritedOptionsOf(const CLI::App& verb);

std::vector<const CLI::Option*> allOptionsOf(const CLI::App& verb);

/// @returns the option of a verb, or else of one below it, for which it may stand here; nullptr for none.
const CLI::Option* findOption(const CLI::App& verb, const std::string& name);

/// @returns "--port", "-q".
std::vector<std::string> spellings(const CLI::Option& option);

bool takesValue(const CLI::Option& option);

/// @returns what a value is called: "PORT".
std::string valueName(const CLI::Option& option);

/// @returns the values of CLI::IsMember; none for any other option.
std::vector<std::string> valuesOf(const CLI::Option& option);

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
