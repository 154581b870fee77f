#pragma once

#include <CLI/CLI.hpp>
#include <array>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "protocol/Errors.h"
#include "station/Connection.h"

/// The verbs of engineering-station, one file each: `addX` puts the noun or verb with its options into the tree.
namespace programs::station_tool {

using protocol::ExitStatus;
using enum protocol::ExitStatus;

struct StatusMeaning {
    ExitStatus status;
    const char* meaning;
};

/// For help and manual page.
inline constexpr std::array kStatusMeanings{
    StatusMeaning{kPassed, "done; plan: all passed"},
    StatusMeaning{kFailed, "failed; plan: a limit was missed"},
    StatusMeaning{kWrongUse, "wrong use, or an error in a file"},
    StatusMeaning{kNoAnswer, "no answer in time"},
    StatusMeaning{kInterrupted, "interrupted"},
    StatusMeaning{kNothingRun, "nothing was run"},
    StatusMeaning{kError, "plan: a step ended in an error"},
    StatusMeaning{kNotRecorded, "the results could not be written"},
    StatusMeaning{kPortUnavailable, "the port is missing or busy"},
    StatusMeaning{kLineFailed, "the line failed during use"},
    StatusMeaning{kReadBackDiffers, "the value read back differs from the value written"},
};

class Station;

struct Tool {
    CLI::App& app;
    /// --json: data on standard output is JSON with a "schema" number.
    bool json = false;
    /// What the chosen verb does; returns the exit status. Set by the verb's callback.
    std::function<int()> action;
    /// Set by SIGINT and SIGTERM.
    station::Interrupt& interrupt;
    /// Never nullptr while `action` runs in the program.
    Station* station = nullptr;
    /// @returns the station's folder of results, where a verb was given none; empty for none.
    std::function<std::string()> stationsResults = [] { return std::string(); };
};

inline constexpr const char* kProgram = "engineering-station";

/// The number that every JSON object of the tool carries as "schema".
inline constexpr int kSchema = 1;

using WrongUse = protocol::UserError;

/// What a value may be is told by the type name of its option, so that completion knows: type_name("FILE"), "DIR",
/// "PORT", "COMMAND" (a GROUP.COMMAND, with its arguments behind it), "GROUP"; CLI::IsMember names the values itself.
///
/// A verb's description begins with one line that stands in the list of verbs; the lines behind it are shown by the
/// verb's own help. Its footer holds examples, one a line, beginning with "  engineering-station".

/// Prints one object on one line of standard output; "schema" is put in front.
void printJson(nlohmann::ordered_json object);

/// Prints a text that is made for people or other programs than readers of JSON; with --json as {"text": …}.
void printText(const std::string& text, bool json);

/// @returns whether TERM names no terminal that obeys control sequences.
bool isDumbTerminal();

/// @returns whether standard output (or the given descriptor) takes colour: a terminal that is not dumb, and NO_COLOR
/// unset.
bool colourWanted(int descriptor = 1);

/// Takes PATH[,BAUD] apart.
station::PortSpec parsePort(std::string_view text);

/// @returns what is wrong with PATH[,BAUD], empty when nothing is.
std::string checkPort(const std::string& text);

/// Adds --port PATH[,BAUD] with its check and default.
void addPort(CLI::App& verb, station::PortSpec& port);

/// @returns the results folder of the command line, else the station's, else the default.
std::string resultsFolder(const Tool& tool, const std::string& given);

/// Adds --timeout SECONDS with its check.
void addTimeout(CLI::App& verb, double& seconds);

/// Puts a noun or verb with its options into the tree.
using AddVerb = void(Tool& tool);

AddVerb addPorts, addSend, addEncode, addDecode, addMonitor, addIdentity, addReport, addPlan, addStation, addCatalogue,
    addCompletion, addMan;

/// In the order of the help.
inline constexpr std::array kVerbs{&addPorts,  &addSend, &addEncode,  &addDecode,    &addMonitor,    &addIdentity,
                                   &addReport, &addPlan, &addStation, &addCatalogue, &addCompletion, &addMan};

void addIdentityRegistry(Tool& tool, CLI::App& noun);

}  // namespace programs::station_tool
