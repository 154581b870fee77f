#include "programs/station/Tool.h"

#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "protocol/Text.h"
#include "station/SerialLink.h"
#include "station/ports/SerialPorts.h"
#include "station/record/ResultsFolder.h"

namespace programs::station_tool {

namespace {

/// Longer than anybody waits, and far below what a clock's time point holds.
constexpr double kLongestTimeout = 86400;

}  // namespace

station::PortSpec parsePort(std::string_view text)
{
    station::PortSpec port{std::string(text)};
    const auto comma = text.rfind(',');
    if (comma != std::string_view::npos) {
        const auto digits = text.substr(comma + 1);
        unsigned baud = 0;
        const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), baud);
        if (result.ec == std::errc() && result.ptr == digits.data() + digits.size()) {
            port = {std::string(text.substr(0, comma)), baud};
        }
    }
    // Below /tmp anybody can be the first to make its directory.
    port.ownOnly = port.path == station::defaultPort();
    return port;
}

std::string checkPort(const std::string& text)
{
    const unsigned baud = parsePort(text).baud;
    return station::SerialLink::isKnownBaud(baud)
               ? ""
               : std::to_string(baud) + " is no baud rate: a common one such as 9600, 115200 or 921600 was expected";
}

namespace {

std::string checkTimeout(const std::string& text)
{
    double seconds = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), seconds);
    const bool complete = result.ec == std::errc() && result.ptr == text.data() + text.size();
    return complete && seconds >= 0 && seconds <= kLongestTimeout
               ? ""
               : "'" + text + "' is no number of seconds from 0 to 86400";
}

}  // namespace

void printJson(nlohmann::ordered_json object)
{
    nlohmann::ordered_json line{{"schema", kSchema}};
    line.update(object);
    // Bytes that are no UTF-8 come from the line: they are replaced, never a reason to fail.
    const std::string text = line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    std::puts(protocol::printableJson(text).c_str());
}

void printText(const std::string& text, bool json)
{
    json ? printJson({{"text", text}}) : static_cast<void>(std::fputs(text.c_str(), stdout));
}

bool isDumbTerminal()
{
    const char* terminal = std::getenv("TERM");
    return terminal == nullptr || *terminal == '\0' || std::string_view(terminal) == "dumb";
}

bool colourWanted(int descriptor)
{
    const char* refused = std::getenv("NO_COLOR");
    return (refused == nullptr || *refused == '\0') && !isDumbTerminal() && isatty(descriptor) == 1;
}

void addPort(CLI::App& verb, station::PortSpec& port)
{
    port = parsePort(station::defaultPort());
    verb.add_option_function<std::string>(
            "--port", [&port](const std::string& text) { port = parsePort(text); },
            "PATH[,BAUD]: serial device or pseudo-terminal, 115200 baud unless told otherwise")
        ->check(checkPort)
        ->type_name("PORT")
        ->default_str(station::defaultPort());
}

std::string resultsFolder(const Tool& tool, const std::string& given)
{
    const std::string stations = given.empty() ? tool.stationsResults() : given;
    return stations.empty() ? station::record::kDefaultResults : stations;
}

void addTimeout(CLI::App& verb, double& seconds)
{
    verb.add_option("--timeout", seconds, "How long to wait for the reply, in seconds; may be 0.2")
        ->check(checkTimeout)
        ->type_name("SECONDS")
        ->default_val(seconds);
}

}  // namespace programs::station_tool
