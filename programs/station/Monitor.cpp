#include <fmt/format.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "programs/Cli.h"
#include "programs/station/FrameJson.h"
#include "programs/station/Tool.h"
#include "protocol/Text.h"
#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/HexBytes.h"
#include "station/ClockText.h"
#include "station/FrameScanner.h"
#include "station/monitor/EventFilter.h"
#include "station/monitor/Monitor.h"
#include "station/trace/Attribution.h"
#include "station/trace/CaptureReader.h"
#include "station/trace/Describe.h"
#include "station/trace/Pcapng.h"
#include "station/trace/Secrets.h"

namespace programs::station_tool {

namespace {

using nlohmann::ordered_json;
using station::TraceEvent;
using Kind = TraceEvent::Kind;
namespace catalogue = protocol::catalogue;

struct MonitorOptions {
    station::PortSpec port;
    std::string filter;
    std::string pcapng;
    std::string replay;
    station::CaptureTerms capture;
    double timeoutSeconds = 1;
    double durationSeconds = 0;
    // A user who watches waits for the device as long as it takes.
    double reconnectSeconds = kForEver;
    bool hex = false;
    bool enterTestMode = false;
};

/// @returns "14:03:27.123456" on the station's clock.
std::string clockTime(std::chrono::system_clock::time_point time)
{
    return station::formatLocal(time, "%H:%M:%S") + station::fractionOfSecond(time, 6);
}

/// Prints events as they happen, each at once.
class Printer : public station::TraceSink
{
public:
    Printer(station::EventFilter filter, bool hex, bool json)
        : filter_(std::move(filter)), hex_(hex), json_(json), colour_(!json && colourWanted())
    {
    }

    void on(const TraceEvent& event) override
    {
        const auto decoded = attribution_.on(event).decoded;
        if (!filter_.passes(event, decoded)) {
            return;
        }
        json_ ? printObject(event, decoded) : printLine(event, decoded);
        std::fflush(stdout);
    }

private:
    void printLine(const TraceEvent& event, const catalogue::Decoded& decoded) const
    {
        std::string line = clockTime(event.at) + "  ";
        std::string direction = name(event.kind);
        direction.resize(8, ' ');
        const char* colour = event.kind == Kind::kSent ? "\x1B[36m" : event.kind == Kind::kReceived ? "" : "\x1B[31m";
        line += colour_ && *colour != '\0' ? colour + direction + "\x1B[0m" : direction;
        line += "  " + describe(attribution_.groups(), event, decoded);
        if (const auto bytes = station::wireBytes(event); hex_ && !bytes.empty()) {
            line += "  | " + catalogue::formatHexBytes(bytes);
        }
        std::puts(line.c_str());
    }

    void printObject(const TraceEvent& event, const catalogue::Decoded& decoded) const
    {
        const bool frame = event.kind == Kind::kSent || event.kind == Kind::kReceived;
        ordered_json object{
            {"type", frame ? "frame" : name(event.kind)},
            {"time", station::isoUtc(event.at, 6)},
            {"time_ns", std::chrono::duration_cast<std::chrono::nanoseconds>(event.at.time_since_epoch()).count()}};
        if (!hasFrame(event.kind)) {
            object["text"] = describe(attribution_.groups(), event, decoded);
        } else {
            object["direction"] = event.kind == Kind::kSent ? "sent" : "received";
            object["from"] = event.kind == Kind::kSent ? "station" : "unit";
            object.update(frameJson(attribution_.groups(), decoded, event.frame));
            if (event.masked) {
                object["masked"] = true;
            }
        }
        if (const auto bytes = station::wireBytes(event); hex_ && !bytes.empty()) {
            object["bytes"] = catalogue::formatHexBytes(bytes);
        }
        printJson(std::move(object));
    }

    station::Attribution attribution_{catalogue::groups()};
    station::EventFilter filter_;
    bool hex_;
    bool json_;
    bool colour_;
};

int replay(const MonitorOptions& options, const Tool& tool, Printer& printer)
{
    const auto input = openInput(options.replay, tool.interrupt);
    station::CaptureReader reader(*input, nameOfInput(options.replay), options.capture);
    station::SecretMask mask(catalogue::groups());
    while (auto piece = reader.next()) {
        if (piece->event) {
            printer.on(mask(*std::move(piece->event)));
        }
    }
    complainOfIgnored(nameOfInput(options.replay), reader.ignored());
    return kPassed;
}

/// Begins a capture of the port's line.
std::optional<station::pcapng::File> captureOf(const MonitorOptions& options)
{
    if (options.pcapng.empty()) {
        return std::nullopt;
    }
    try {
        return std::optional<station::pcapng::File>(
            std::in_place, options.pcapng,
            station::pcapng::Source{std::string(kProgram) + " " ENGINEERING_VERSION, options.port.path,
                                    options.port.baud},
            [attribution = station::Attribution(catalogue::groups())](const TraceEvent& event) mutable {
                return describe(attribution.groups(), event, attribution.on(event).decoded);
            });
    } catch (const std::system_error& error) {
        throw protocol::StorageError(error.what(), kNotRecorded);
    }
}

int monitorLine(const MonitorOptions& options, Tool& tool)
{
    Printer printer({catalogue::groups(), options.filter}, options.hex, tool.json);
    if (!options.replay.empty()) {
        return replay(options, tool, printer);
    }
    auto capture = captureOf(options);
    const station::MonitorTerms terms{
        options.port, fromSeconds(options.timeoutSeconds), fromSeconds(options.reconnectSeconds),
        options.durationSeconds > 0 ? std::optional(fromSeconds(options.durationSeconds)) : std::nullopt,
        options.enterTestMode};
    const station::MonitorOutput output{printer, capture ? &*capture : nullptr,
                                        [](const std::string& line) { complain(kProgram, line); },
                                        [] { return std::ferror(stdout) != 0; }};
    return monitor(catalogue::groups(), terms, output, tool.interrupt);
}

}  // namespace

void addMonitor(Tool& tool)
{
    const auto options = std::make_shared<MonitorOptions>();
    CLI::App* verb = tool.app.add_subcommand(
        "monitor",
        "Show the traffic on a line\n"
        "Each frame is one line: time, direction as the station sees it (sent, received, corrupt), meaning. The tool "
        "locks the port, so you see what the unit sends by itself. Most units send in auto-test mode only: see "
        "--enter-test-mode. For key reports, run 'send keys.set-feedback value=on' first. The tool waits for a device "
        "that disappears. Ctrl-C ends it, with exit status 0.\n"
        "\n"
        "A filter lists alternatives between commas. All words of an alternative must match; a word after ! must not:\n"
        "  sent, received, corrupt   the direction\n"
        "  tuner                     a group\n"
        "  tuner.frequency           a command and its replies, or a notice\n"
        "  02, 02.01                 codes in hexadecimal, without bit 7 of the group");
    addPort(*verb, options->port);
    addTimeout(*verb, options->timeoutSeconds);
    addReconnect(*verb, options->reconnectSeconds);
    verb->add_flag("--hex", options->hex, "Also show the bytes");
    verb->add_option("--filter", options->filter, "Show only matching frames; a capture holds all")->type_name("EXPR");
    auto* pcapng =
        verb->add_option("--pcapng", options->pcapng,
                         "Write a capture for Wireshark to this file (link type USER0); replace an existing file")
            ->type_name("FILE");
    auto* enter = verb->add_flag("--enter-test-mode", options->enterTestMode,
                                 "Switch auto-test mode on, and restore it at the end");
    verb->add_option("--duration", options->durationSeconds, "End after this time; 0 for no limit")
        ->type_name("SECONDS")
        ->check(secondsUpTo(kForEver))
        ->default_str("0");
    auto* replay =
        verb->add_option("--replay", options->replay, "Show this capture, not a line; decode names the forms")
            ->type_name("FILE")
            ->excludes("--port")
            ->excludes(pcapng)
            ->excludes(enter);
    addCaptureTerms(*verb, options->capture);
    for (const char* const name : {"--format", "--station"}) {
        verb->get_option(name)->needs(replay);
    }
    verb->footer(
        "Examples:\n"
        "  engineering-station monitor --enter-test-mode\n"
        "  engineering-station monitor --hex --filter 'received keys, corrupt' --pcapng trace.pcapng\n"
        "  engineering-station monitor --replay trace.pcapng --json");
    verb->callback([&tool, options] { tool.action = [&tool, options] { return monitorLine(*options, tool); }; });
}

}  // namespace programs::station_tool
