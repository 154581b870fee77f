#pragma once

#include <CLI/CLI.hpp>
#include <array>
#include <chrono>
#include <functional>
#include <istream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "programs/Cli.h"
#include "protocol/Errors.h"
#include "station/Connection.h"
#include "station/trace/CaptureReader.h"

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
    StatusMeaning{kNotRecorded, "a file could not be written"},
    StatusMeaning{kPortUnavailable, "the port is missing or busy"},
    StatusMeaning{kLineFailed, "the line failed during use"},
    StatusMeaning{kReadBackDiffers, "the value read back differs from the value written"},
};

class Station;

struct Tool {
    CLI::App& app;
    /// --json: data on standard output is JSON with a "schema" number.
    bool json = false;
    /// The work of the chosen verb; returns the exit status. The verb's callback sets it.
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

/// Prints one object on one line of standard output; "schema" is put in front.
void printJson(nlohmann::ordered_json object);

/// Prints a text that is made for people or other programs than readers of JSON; with --json as {"text": …}.
void printText(const std::string& text, bool json);

/// Prints an error as one line on standard error, or as one JSON object on standard output.
/// @returns `status`.
int printError(const std::string& line, const char* kind, ExitStatus status, bool json);

/// @returns whether TERM names no terminal that obeys control sequences.
bool isDumbTerminal();

/// @returns whether standard output and standard error end in the same place, such as one terminal.
bool outputsAreOne();

/// @returns whether standard output (or the given descriptor) takes colour: a terminal that is not dumb, and NO_COLOR
/// unset.
bool colourWanted(int descriptor = 1);

/// @returns the error in a text that must not be empty; empty if there is none.
std::string checkNotEmpty(const std::string& text);

/// Adds --port PATH[,BAUD] with its check and default.
void addPort(CLI::App& verb, station::PortSpec& port);

/// @returns the results folder of the command line, else the station's, else the default.
std::string resultsFolder(const Tool& tool, const std::string& given);

/// Adds --timeout SECONDS with its check.
void addTimeout(CLI::App& verb, double& seconds);

/// Adds --results DIR.
void addResults(CLI::App& verb, std::string& directory);

/// Adds --reconnect SECONDS.
void addReconnect(CLI::App& verb, double& seconds);

/// @returns a time of the command line; 0 for a negative one.
std::chrono::nanoseconds fromSeconds(double seconds);

/// Adds the words of one command: COMMAND and ARGUMENT…
void addCommandWords(CLI::App& verb, std::string& command, std::vector<std::string>& arguments);

/// The longest file that the tool reads whole: far longer than a catalogue or a plan.
inline constexpr std::size_t kLongestInput = std::size_t{256} << 20;

/// Opens a file for reading as it comes; "-" is standard input. Reading throws UserError if that fails, and Interrupted
/// if the user ends the wait for standard input or a pipe.
std::unique_ptr<std::istream> openInput(const std::string& path, const station::Interrupt& interrupt);

/// @returns a file's name for messages.
std::string nameOfInput(const std::string& path);

/// Adds --format NAME and --station CHANNEL, which say how to read a capture.
void addCaptureTerms(CLI::App& verb, station::CaptureTerms& terms);

/// Reads a whole file; "-" is standard input. Throws UserError if it cannot be read, is a directory or is longer than
/// kLongestInput, and Interrupted if the user ends the wait for standard input or a pipe.
std::string readInput(const std::string& path, const station::Interrupt& interrupt);

/// Prints on standard error a line that begins with the place in the user's file. The program's name does not stand
/// before it, so editors find the place.
void complainOfFile(const std::string& line);

/// Prints on standard error what of a capture was ignored, unless it is nothing.
void complainOfIgnored(const std::string& capture, const std::string& what);

/// Makes standard output, std::cout too, remember the first error of a write. To be called before anything is printed.
void watchStandardOutput();

/// @returns 0 if everything that was printed has reached standard output, else the errno of the first write that
/// failed.
int flushStandardOutput();

/// Puts a noun or verb with its options into the tree.
using AddVerb = void(Tool& tool);

/// Fills the tree: the options that every verb takes, all verbs, the layout of the help.
void setUp(Tool& tool);

/// Reads the command line into the tree.
/// @returns the exit status when nothing is left to do: --help, --version or wrong use.
std::optional<int> parseCommandLine(CLI::App& app, int argc, char** argv);

AddVerb addPorts, addSend, addEncode, addDecode, addMonitor, addReplay, addIdentity, addReport, addPlan, addServe,
    addStation, addCatalogue, addCompletion, addMan;

/// In the order of the help.
inline constexpr std::array kVerbs{&addPorts,   &addSend,      &addEncode,     &addDecode, &addMonitor,
                                   &addReplay,  &addIdentity,  &addReport,     &addPlan,   &addServe,
                                   &addStation, &addCatalogue, &addCompletion, &addMan};

void addIdentityRegistry(Tool& tool, CLI::App& noun);

}  // namespace programs::station_tool
