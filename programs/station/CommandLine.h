#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "programs/station/Tool.h"

namespace programs::station_tool {

/// Fills the tree: the options that every verb takes, all verbs, the layout of the help.
void setUp(Tool& tool);

/// Reads the command line into the tree.
/// @returns the exit status when nothing is left to do: --help, --version or wrong use.
std::optional<int> parseCommandLine(CLI::App& app, int argc, char** argv);

/// @returns "engineering-station catalogue show" for that verb.
std::string pathOf(const CLI::App& verb);

/// @returns the first line of a verb's description.
std::string titleOf(const CLI::App& verb);

/// @returns the description without its first line.
std::string detailsOf(const CLI::App& verb);

/// @returns the verbs or nouns below `app`, in the order in which they were added.
std::vector<const CLI::App*> verbsOf(const CLI::App& app);

/// @returns the options, or the positional arguments, of `verb` that a user is told of.
std::vector<const CLI::Option*> optionsOf(const CLI::App& verb);
std::vector<const CLI::Option*> positionalsOf(const CLI::App& verb);

/// @returns the options of `verb`, and those of the nouns above it that it takes too.
std::vector<const CLI::Option*> allOptionsOf(const CLI::App& verb);
std::vector<const CLI::Option*> inheritedOptionsOf(const CLI::App& verb);

/// @returns the option's spellings: "--help", "-h".
std::vector<std::string> spellings(const CLI::Option& option);

/// @returns whether the option takes a value.
bool takesValue(const CLI::Option& option);

/// @returns the type name that was given to the option, or for a list of values "VALUE".
std::string valueName(const CLI::Option& option);

/// @returns the values of an option that has only some.
std::vector<std::string> valuesOf(const CLI::Option& option);

}  // namespace programs::station_tool
