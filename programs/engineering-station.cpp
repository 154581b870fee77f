// The test station's side of the line.

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "programs/Cli.h"
#include "protocol/Frame.h"
#include "station/Hex.h"
#include "station/SerialLink.h"
#include "station/Station.h"

namespace {

using programs::complain;
using protocol::Frame;

constexpr const char* kProgram = "engineering-station";

/// Longer than anybody waits, and far below what a clock's time point holds.
constexpr double kLongestTimeout = 86400;

struct SendOptions {
    std::string cmdOne;
    std::string cmdTwo;
    std::vector<std::string> params;
    std::string port;
    double timeoutSeconds = 1;
    bool expectNone = false;
};

struct Port {
    std::string path;
    unsigned baud = station::SerialLink::kDefaultBaud;
};

/// @returns the link at which the service is found when nothing else was said to either side.
std::string defaultPort()
{
    if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime != nullptr && *runtime != '\0') {
        return std::string(runtime) + "/engineering/uart";
    }
    return "/tmp/engineering-" + std::to_string(getuid()) + "/uart";
}

/// Takes PATH[,BAUD] apart.
Port parsePort(std::string_view text)
{
    const auto comma = text.rfind(',');
    if (comma != std::string_view::npos) {
        const auto digits = text.substr(comma + 1);
        unsigned baud = 0;
        const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), baud);
        if (result.ec == std::errc() && result.ptr == digits.data() + digits.size()) {
            return {std::string(text.substr(0, comma)), baud};
        }
    }
    return {std::string(text)};
}

std::string checkByte(const std::string& text)
{
    return station::parseByte(text) ? "" : "'" + text + "' is no byte: one or two hexadecimal digits were expected";
}

std::string checkPort(const std::string& text)
{
    const unsigned baud = parsePort(text).baud;
    return station::SerialLink::isKnownBaud(baud)
               ? ""
               : std::to_string(baud) + " is no baud rate: a common one such as 9600, 115200 or 921600 was expected";
}

std::string checkTimeout(const std::string& text)
{
    double seconds = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), seconds);
    const bool complete = result.ec == std::errc() && result.ptr == text.data() + text.size();
    return complete && seconds >= 0 && seconds <= kLongestTimeout
               ? ""
               : "'" + text + "' is no number of seconds from 0 to 86400";
}

Frame commandOf(const SendOptions& options)
{
    const auto byte = [](const std::string& text) { return station::parseByte(text).value(); };
    Frame frame{byte(options.cmdOne), byte(options.cmdTwo), {}};
    std::ranges::transform(options.params, std::back_inserter(frame.params), byte);
    return frame;
}

int report(const SendOptions& options, const std::optional<Frame>& reply, std::size_t corruptFrames)
{
    if (reply) {
        std::puts(station::format(*reply).c_str());
    }
    if (options.expectNone) {
        if (reply) {
            complain(kProgram, "a reply came where none was expected");
        }
        return reply ? programs::kFailed : programs::kDone;
    }
    if (!reply) {
        std::string message = "no reply came in time";
        if (corruptFrames > 0) {
            message += "; frames with a wrong checksum: " + std::to_string(corruptFrames);
        }
        complain(kProgram, message);
        return programs::kNoAnswer;
    }
    return programs::kDone;
}

int send(const SendOptions& options)
{
    const Frame command = commandOf(options);
    if (command.params.size() > protocol::kMaxStationParams) {
        complain(kProgram, "a frame holds at most " + std::to_string(protocol::kMaxStationParams) +
                               " parameter bytes, not " + std::to_string(command.params.size()));
        return programs::kWrongUse;
    }
    const auto timeout =
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(options.timeoutSeconds));
    const Port port = parsePort(options.port);
    station::Station line{station::SerialLink(port.path, port.baud)};
    const auto reply = line.request(command, timeout);
    return report(options, reply, line.corruptFrames());
}

void addSend(CLI::App& app, SendOptions& options)
{
    CLI::App* command = app.add_subcommand(
        "send",
        "Sends one command and prints the reply to it as `8F 00 [01]`: group, command, parameters, in hexadecimal.\n"
        "What was left in the line from before is discarded first. Frames that the head unit sends on its own while\n"
        "the reply is awaited (key reports, notices) are passed over; they do not count as a reply.\n"
        "Exit status: 0 a reply came, 1 failure, 2 wrong use, 3 no reply in time.");
    command->add_option("CMD_ONE", options.cmdOne, "Command group, hexadecimal")->required()->check(checkByte);
    command->add_option("CMD_TWO", options.cmdTwo, "Command, hexadecimal")->required()->check(checkByte);
    command->add_option("BYTE", options.params, "Parameter bytes, hexadecimal, at most 252")->check(checkByte);
    command
        ->add_option("--port", options.port,
                     "PATH[,BAUD]: serial device or pseudo-terminal, 115200 baud unless told otherwise")
        ->check(checkPort)
        ->default_val(defaultPort());
    command->add_option("--timeout", options.timeoutSeconds, "How long to wait for the reply, in seconds; may be 0.2")
        ->check(checkTimeout)
        ->default_val(options.timeoutSeconds);
    command->add_flag("--expect-none", options.expectNone,
                      "Exit with 0 when no reply to the command came within the time, with 1 when one did");
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app("The test station's side of the line: sends commands and decodes replies.", kProgram);
    SendOptions options;
    app.require_subcommand(1);
    addSend(app, options);
    if (const auto status = programs::parse(app, argc, argv)) {
        return *status;
    }
    try {
        return send(options);
    } catch (const std::exception& error) {
        complain(kProgram, error.what());
        return programs::kFailed;
    }
}
