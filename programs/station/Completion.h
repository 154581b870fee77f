#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

namespace programs::station_tool {

/// A word that may stand at the end of a command line.
struct Candidate {
    std::string word;
    std::string meaning;
};

/// Stand in place of words: the shell completes file names here.
inline constexpr const char* kFileNames = ":files";
inline constexpr const char* kDirectoryNames = ":directories";

/// @returns the words that complete the last of `words`, which stand behind the program's name. One that ends in '='
/// wants a value right behind it.
/// @param ports is called only where a port may stand.
std::vector<Candidate> completions(const CLI::App& app, const std::vector<std::string>& words,
                                   const std::function<std::vector<Candidate>()>& ports);

/// Prints the completions when the command line begins with the hidden verb by which the shells' scripts ask for them:
/// one a line, a tab before the meaning.
/// @returns whether it does.
bool printCompletions(const CLI::App& app, int argc, char** argv);

}  // namespace programs::station_tool
