#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "programs/Cli.h"
#include "programs/station/FrameJson.h"
#include "programs/station/LineOptions.h"
#include "programs/station/Tool.h"
#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/HexBytes.h"
#include "station/ClockText.h"
#include "station/Connection.h"
#include "station/WireBytes.h"
#include "station/identity/UnitIdentity.h"
#include "station/monitor/EventFilter.h"
#include "station/trace/Attribution.h"
#include "station/trace/Describe.h"
#include "station/trace/FanOut.h"
#include "station/trace/Pcapng.h"
#include "station/trace/PcapngReader.h"
#include "station/trace/Secrets.h"

namespace programs::station_tool {

namespace {

using nlohmann::ordered_json;
using station::Connection;
using station::TraceEvent;
using Kind = TraceEvent::Kind;
namespace catalogue = protocol::catalogue;

/// How long a device that has gone is waited for at the end, to give the unit its mode back.
constexpr auto kRestoreWait = std::chrono::seconds(1);

struct MonitorOptions {
    station::PortSpec port;
    std::string filter;
    std::string pcapng;
    std::string replay;
    double timeoutSeconds = 1;
    double durationSeconds = 0;
    // Whoever watches waits for the device as long as it takes.
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
        back_ = back_ || event.kind == Kind::kBack;
        const auto decoded = attribution_.on(event).decoded;
        if (!filter_.passes(event, decoded)) {
            return;
        }
        json_ ? printObject(event, decoded) : printLine(event, decoded);
        std::fflush(stdout);
    }

    /// @returns whether the device has come back since this was asked last.
    bool takeBack() { return std::exchange(back_, false); }

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
    bool back_ = false;
};

station::EventFilter filterOf(const MonitorOptions& options)
{
    if (options.filter.empty()) {
        return {};
    }
    try {
        return {catalogue::groups(), options.filter};
    } catch (const std::invalid_argument& error) {
        throw WrongUse(std::string("--filter: ") + error.what());
    }
}

/// Shows the line without its secrets.
class MaskedTrace : public station::TraceSink
{
public:
    explicit MaskedTrace(station::TraceSink& next) : next_(next) {}

    void on(const TraceEvent& event) override { next_.on(mask_(event)); }

private:
    station::TraceSink& next_;
    station::SecretMask mask_{catalogue::groups()};
};

int replay(const MonitorOptions& options, Printer& printer)
{
    std::ifstream file(options.replay, std::ios::binary);
    if (!file) {
        throw WrongUse(options.replay + ": the capture cannot be opened");
    }
    station::pcapng::Reader reader(file, options.replay);
    MaskedTrace trace(printer);
    while (const auto event = reader.next()) {
        trace.on(*event);
    }
    if (reader.foreign() > 0) {
        complain(kProgram, options.replay + ": packets of other link types than USER0 were passed over: " +
                               std::to_string(reader.foreign()));
    }
    return kPassed;
}

class Monitor
{
public:
    Monitor(const MonitorOptions& options, Tool& tool, Printer& printer)
        : options_(options), tool_(tool), printer_(printer)
    {
    }

    int run()
    {
        std::vector<station::TraceSink*> sinks;
        if (!options_.pcapng.empty()) {
            openCapture();
            // First: what has been seen is in the capture, whatever happens then.
            sinks.push_back(&*capture_);
        }
        sinks.push_back(&printer_);
        station::FanOut everybody(sinks);
        MaskedTrace trace(everybody);
        Connection connection(
            options_.port,
            {.reconnect = fromSeconds(options_.reconnectSeconds), .trace = &trace, .interrupt = &tool_.interrupt});
        station::identity::UnitIdentity unit(connection, catalogue::groups(), fromSeconds(options_.timeoutSeconds));
        try {
            if (options_.enterTestMode) {
                unit.enterTestMode();
            }
            watch(connection, unit);
        } catch (const station::Interrupted&) {
            // The usual end.
        } catch (const station::identity::NoAnswer& error) {
            complain(kProgram, error.what());
            status_ = kNoAnswer;
        }
        restore(connection, unit);
        if (capture_ && !capture_->failure().empty() && !complained_) {
            complainAboutCapture();
        }
        return status_;
    }

private:
    void openCapture()
    {
        const station::pcapng::Source source{std::string(kProgram) + " " ENGINEERING_VERSION, options_.port.path,
                                             options_.port.baud};
        try {
            capture_.emplace(
                options_.pcapng, source,
                [attribution = station::Attribution(catalogue::groups())](const TraceEvent& event) mutable {
                    return describe(attribution.groups(), event, attribution.on(event).decoded);
                });
        } catch (const std::system_error& error) {
            throw WrongUse(error.what());
        }
    }

    void watch(Connection& connection, station::identity::UnitIdentity& unit)
    {
        const double seconds = options_.durationSeconds > 0 ? options_.durationSeconds : kForEver;
        const auto end = Connection::Clock::now() + fromSeconds(seconds);
        while (Connection::Clock::now() < end && std::ferror(stdout) == 0) {
            // The looks at what came back and at the capture are no reason to wake up often.
            connection.receive(std::min(end, Connection::Clock::now() + std::chrono::seconds(1)));
            if (printer_.takeBack() && options_.enterTestMode) {
                enterAgain(unit);
            }
            if (capture_ && !capture_->failure().empty() && !complained_) {
                complainAboutCapture();
            }
        }
    }

    /// A unit that started again has left the mode; one that is not up yet is asked later.
    void enterAgain(station::identity::UnitIdentity& unit)
    {
        try {
            unit.keepTestMode();
        } catch (const station::identity::NoAnswer& error) {
            complain(kProgram, error.what());
        }
    }

    void restore(Connection& connection, station::identity::UnitIdentity& unit)
    {
        if (!options_.enterTestMode) {
            return;
        }
        tool_.interrupt.clear();
        // The watching may wait for ever, its end may not.
        connection.waitAtMost(kRestoreWait);
        try {
            unit.restoreMode();
        } catch (const std::exception& error) {
            complain(kProgram, std::string("auto-test mode is left on: ") + error.what());
        }
    }

    void complainAboutCapture()
    {
        complained_ = true;
        status_ = kFailed;
        complain(kProgram, capture_->failure());
    }

    const MonitorOptions& options_;
    Tool& tool_;
    Printer& printer_;
    std::optional<station::pcapng::File> capture_;
    bool complained_ = false;
    int status_ = kPassed;
};

int monitor(const MonitorOptions& options, Tool& tool)
{
    Printer printer(filterOf(options), options.hex, tool.json);
    return options.replay.empty() ? Monitor(options, tool, printer).run() : replay(options, printer);
}

}  // namespace

void addMonitor(Tool& tool)
{
    const auto options = std::make_shared<MonitorOptions>();
    CLI::App* verb = tool.app.add_subcommand(
        "monitor",
        "Shows what passes on a line\n"
        "A line a frame: time, direction as the station sees it (sent, received, corrupt), meaning. The port is this "
        "program's alone meanwhile, so what comes is what the unit sends by itself, which it mostly does in auto-test "
        "mode only: see --enter-test-mode. Key reports come only while they are switched on, before monitor has the "
        "port: 'send keys.set-feedback value=on' in auto-test mode. A device that goes is waited for; that it went and "
        "came back is shown. "
        "Ctrl-C ends it, with exit status 0.\n"
        "\n"
        "A filter has alternatives between commas; words between blanks must all hold, one behind ! must not:\n"
        "sent, received, corrupt: the direction\n"
        "tuner: a group\n"
        "tuner.frequency: a command with what answers it, or what the unit sends by itself\n"
        "02, 02.01: codes on the line, hexadecimal, bit 7 of the group aside");
    addPort(*verb, options->port);
    addTimeout(*verb, options->timeoutSeconds);
    addReconnect(*verb, options->reconnectSeconds);
    verb->add_flag("--hex", options->hex, "Show the bytes too");
    verb->add_option("--filter", options->filter, "Which frames to show; a capture holds all of them")
        ->type_name("EXPR");
    auto* pcapng =
        verb->add_option(
                "--pcapng", options->pcapng,
                "Capture into this file, for Wireshark: link type USER0, comments; one that exists is replaced")
            ->type_name("FILE");
    auto* enter = verb->add_flag("--enter-test-mode", options->enterTestMode,
                                 "Switch auto-test mode on, and back to what it was at the end");
    verb->add_option("--duration", options->durationSeconds, "End after so many seconds; 0 for never")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, kForEver))
        ->default_str("0");
    verb->add_option("--replay", options->replay, "Show this capture instead of a line")
        ->type_name("FILE")
        ->excludes("--port")
        ->excludes(pcapng)
        ->excludes(enter);
    verb->footer(
        "Examples:\n"
        "  engineering-station monitor --enter-test-mode\n"
        "  engineering-station monitor --hex --filter 'received keys, corrupt' --pcapng trace.pcapng\n"
        "  engineering-station monitor --replay trace.pcapng --json");
    verb->callback([&tool, options] { tool.action = [&tool, options] { return monitor(*options, tool); }; });
}

}  // namespace programs::station_tool
