#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "programs/Cli.h"
#include "programs/station/EventView.h"
#include "programs/station/Tool.h"
#include "protocol/Text.h"
#include "protocol/catalogue/Catalogue.h"
#include "station/monitor/EventFilter.h"
#include "station/monitor/Monitor.h"
#include "station/record/RunList.h"
#include "station/trace/Attribution.h"
#include "station/trace/CaptureReader.h"
#include "station/trace/Describe.h"
#include "station/trace/Pcapng.h"
#include "station/trace/Secrets.h"

namespace programs::station_tool {

namespace {

using station::TraceEvent;
namespace catalogue = protocol::catalogue;

struct MonitorOptions {
    station::PortSpec port;
    std::string filter;
    std::string pcapng;
    std::string replay;
    station::CaptureTerms capture;
    std::string run;
    std::string results;
    double timeoutSeconds = 1;
    double durationSeconds = 0;
    // A user who watches waits for the device as long as it takes.
    double reconnectSeconds = kForEver;
    bool hex = false;
    bool changes = false;
    bool enterTestMode = false;
};

/// Shows nothing: standard output holds the capture.
class NoView : public EventView
{
public:
    void on(const TraceEvent&) override {}
};

/// @returns whether the reader of standard output has closed its end of the pipe.
bool isReaderGone()
{
    pollfd output{STDOUT_FILENO, 0, 0};
    return std::ferror(stdout) != 0 || (poll(&output, 1, 0) > 0 && (output.revents & POLLERR) != 0);
}

int replay(const MonitorOptions& options, const Tool& tool, EventView& view)
{
    const auto input = openInput(options.replay, tool.interrupt);
    station::CaptureReader reader(*input, nameOfInput(options.replay), options.capture);
    station::SecretMask mask(catalogue::groups());
    while (auto piece = reader.next()) {
        if (piece->event) {
            view.on(mask(*std::move(piece->event)));
        }
    }
    view.finish();
    complainOfIgnored(nameOfInput(options.replay), reader.ignored());
    return kPassed;
}

/// Begins a capture of the port's line; "-" is standard output.
std::unique_ptr<station::pcapng::File> captureOf(const std::string& path, const station::PortSpec& port)
{
    using station::pcapng::File;
    if (path.empty()) {
        return nullptr;
    }
    const station::pcapng::Source source{std::string(kProgram) + " " ENGINEERING_VERSION, port.path, port.baud};
    const auto meaning = [attribution = station::Attribution(catalogue::groups())](const TraceEvent& event) mutable {
        return describe(attribution.groups(), event, attribution.on(event).decoded);
    };
    try {
        return path == "-" ? std::make_unique<File>(source, meaning) : std::make_unique<File>(path, source, meaning);
    } catch (const std::system_error& error) {
        throw protocol::StorageError(error.what(), kNotRecorded);
    }
}

/// Standard output takes the capture alone.
void expectRoomForCapture(const MonitorOptions& options, const Tool& tool)
{
    if (tool.json || options.hex || options.changes || !options.filter.empty()) {
        throw protocol::UserError(
            "--pcapng -: expected no --json, --hex, --changes or --filter, since standard output holds the capture");
    }
    if (isatty(STDOUT_FILENO) == 1) {
        throw protocol::UserError("--pcapng -: expected a pipe or a file as standard output, got a terminal");
    }
}

int monitorLine(const MonitorOptions& options, Tool& tool)
{
    if (!options.results.empty() && options.run.empty()) {
        throw protocol::UserError("--results: expected --run with it, got none");
    }
    const bool intoPipe = options.pcapng == "-";
    if (intoPipe) {
        expectRoomForCapture(options, tool);
    }
    const auto view =
        intoPipe ? std::make_unique<NoView>()
                 : makeEventView({catalogue::groups(), options.filter}, {options.hex, tool.json, options.changes});
    if (!options.replay.empty()) {
        return replay(options, tool, *view);
    }
    std::optional<station::RunTap> tap;
    if (!options.run.empty()) {
        tap.emplace(station::record::findRecord(resultsFolder(tool, options.results), options.run), tool.interrupt);
    }
    const auto capture = captureOf(options.pcapng, tap ? tap->port() : options.port);
    bool closed = false;
    const station::MonitorOutput output{*view, capture.get(), [&view](const std::string& line) { view->say(line); },
                                        [&] {
                                            view->tick();
                                            closed = isReaderGone() || (intoPipe && !capture->failure().empty());
                                            return closed;
                                        }};
    const auto duration =
        options.durationSeconds > 0 ? std::optional(fromSeconds(options.durationSeconds)) : std::nullopt;
    const auto status = tap ? tap->show(catalogue::groups(), duration, output)
                            : monitor(catalogue::groups(),
                                      {options.port, fromSeconds(options.timeoutSeconds),
                                       fromSeconds(options.reconnectSeconds), duration, options.enterTestMode},
                                      output, tool.interrupt);
    view->finish();
    if (intoPipe && !capture->failure().empty() && !isReaderGone()) {
        complain(kProgram, capture->failure());
    }
    return closed && status == kPassed ? kFailed : status;
}

}  // namespace

void addMonitor(Tool& tool)
{
    const auto options = std::make_shared<MonitorOptions>();
    CLI::App* verb = tool.app.add_subcommand(
        "monitor",
        "Show the traffic on a line\n"
        "Each frame is one line: time, direction as the station sees it (sent, received, corrupt), meaning. The tool "
        "locks the port, so you see what the unit sends by itself; see --run for the line of a plan. Most units send "
        "in auto-test mode only: see --enter-test-mode. For key reports, run 'send keys.set-feedback value=on' first. "
        "The tool waits for a device that disappears. Ctrl-C ends it.\n"
        "\n"
        "A filter lists alternatives between commas. All words of an alternative must match; a word after ! must not:\n"
        "  sent, received, corrupt   the direction\n"
        "  tuner                     a group\n"
        "  tuner.frequency           a command and its replies, or a notice\n"
        "  02, 02.01                 codes in hexadecimal, without bit 7 of the group");
    addPort(*verb, options->port);
    addTimeout(*verb, options->timeoutSeconds);
    addReconnect(*verb, options->reconnectSeconds);
    auto* hex = verb->add_flag("--hex", options->hex, "Also show the bytes");
    verb->add_flag("--changes", options->changes, "Show each command's last value in place, its changed bytes and rate")
        ->excludes(hex);
    verb->add_option("--filter", options->filter, "Show only matching frames; a capture holds all")->type_name("EXPR");
    auto* pcapng = verb->add_option("--pcapng", options->pcapng,
                                    "Write a capture for Wireshark to this file, or to standard output (-) alone")
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
    auto* run = verb->add_option("--run", options->run, "Show the line of a run until it ends: its folder, or 'latest'")
                    ->type_name("RUN");
    for (const char* ofALine : {"--port", "--replay", "--enter-test-mode", "--timeout", "--reconnect"}) {
        run->excludes(ofALine);
    }
    addResults(*verb, options->results);
    verb->footer(
        "Examples:\n"
        "  engineering-station monitor --enter-test-mode\n"
        "  engineering-station monitor --run latest --pcapng - | wireshark -k -i -\n"
        "  engineering-station monitor --hex --filter 'received keys, corrupt' --pcapng trace.pcapng\n"
        "  engineering-station monitor --replay trace.pcapng --changes");
    verb->callback([&tool, options] { tool.action = [&tool, options] { return monitorLine(*options, tool); }; });
}

}  // namespace programs::station_tool
