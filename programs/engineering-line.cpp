// A line between a unit and a station that fails on purpose.

#include <fmt/format.h>
#include <glib-unix.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "host/Glib.h"
#include "line/Line.h"
#include "line/LineBus.h"
#include "platform/runtime/UartOption.h"
#include "programs/Cli.h"

namespace {

constexpr const char* kProgram = "engineering-line";

struct Options {
    std::string from;
    std::string to;
    std::string script;
    std::vector<std::string> set;
    std::optional<std::uint64_t> seed;
    std::string capture;
};

void report(const std::string& message)
{
    programs::complain(kProgram, message);
}

void addOptions(CLI::App& app, Options& options)
{
    app.add_option("--from", options.from, "The unit's end: a serial device, by default at 115200 baud, or a link")
        ->type_name("PORT[,BAUD]")
        ->required();
    app.add_option("--to", options.to, "Link to make: the end that the station opens")->type_name("LINK")->required();
    app.add_option("--faults", options.script, "Script: the faults, and when they change")->type_name("FILE");
    app.add_option("--set", options.set, "Fault from the start, such as drop=1%; may be given several times")
        ->type_name("KEY=VALUE")
        ->allow_extra_args(false);
    app.add_option("--seed", options.seed, "Seed of the faults; by default the script's, or else a random one")
        ->type_name("NUMBER");
    app.add_option("--pcapng", options.capture, "Capture to write; its comments say what the line did to a frame")
        ->type_name("FILE");
    app.footer(
        "Keys, for both directions, or after to_unit. or to_station. for one (docs/bench.md explains them):\n"
        "  drop, corrupt, duplicate, split, hang_up   chance for each frame, such as 1% or 0.01\n"
        "  delay, jitter, away                        time, such as 200ms or 0.2\n"
        "  baud                                       bits per second, 0 for no limit\n"
        "  noise                                      bursts per second\n"
        "\n"
        "Examples:\n"
        "  engineering-line --from /tmp/unit --to /tmp/line --set drop=1% --set to_unit.delay=200ms\n"
        "  engineering-line --from /dev/ttyUSB0,115200 --to /tmp/line --faults faults.toml --pcapng line.pcapng\n"
        "  headunitctl line set corrupt=2%\n"
        "\n"
        "Exit status: 0 ended by a signal, 1 failed, 2 wrong use.");
}

line::Change changeOf(const std::vector<std::string>& words)
{
    line::Change change;
    for (const std::string& word : words) {
        const auto equals = word.find('=');
        const std::string wrong = equals == std::string::npos
                                      ? fmt::format("expected KEY=VALUE, got '{}'", word)
                                      : change.add(word.substr(0, equals), word.substr(equals + 1));
        if (!wrong.empty()) {
            throw protocol::UserError("--set: " + wrong);
        }
    }
    return change;
}

/// @param mistakes gets a line for each mistake in the script
line::Line::Options lineOptions(const Options& options, std::vector<std::string>& mistakes)
{
    const auto port = runtime::parseUartOption(options.from, "--from");
    if (port.kind != runtime::UartOption::Kind::kDevice) {
        throw protocol::UserError(fmt::format("--from: expected PORT[,BAUD], got '{}'", options.from));
    }
    if (options.to.empty()) {
        throw protocol::UserError("--to: expected a link, got ''");
    }
    line::Line::Options all;
    all.from = {port.path, port.baud};
    all.to = options.to;
    if (!options.script.empty()) {
        all.script = line::loadScript(options.script, mistakes);
    }
    all.seed = options.seed ? *options.seed : all.script.seed ? *all.script.seed : std::random_device()();
    all.change = changeOf(options.set);
    all.capture = options.capture;
    all.program = fmt::format("{} {}", kProgram, ENGINEERING_VERSION);
    all.report = report;
    return all;
}

int run(const Options& options)
{
    std::vector<std::string> mistakes;
    const auto all = lineOptions(options, mistakes);
    std::ranges::for_each(mistakes, report);
    if (!mistakes.empty()) {
        return protocol::kWrongUse;
    }
    const host::GlibPtr<GMainLoop> loop(g_main_loop_new(nullptr, FALSE));
    const auto end = [](gpointer data) -> gboolean {
        g_main_loop_quit(static_cast<GMainLoop*>(data));
        return G_SOURCE_CONTINUE;
    };
    g_unix_signal_add(SIGINT, end, loop.get());
    g_unix_signal_add(SIGTERM, end, loop.get());

    line::Line line(all);
    line::LineBus bus(line, report);
    if (const std::string reason = bus.start(); !reason.empty()) {
        report(reason);
    }
    std::fprintf(stderr, "ready line=%s seed=%llu\n", line.path().c_str(), static_cast<unsigned long long>(all.seed));
    g_main_loop_run(loop.get());
    const bool printed = std::puts(line.counts().dump().c_str()) >= 0 && std::fflush(stdout) == 0;
    return line.captureFailure().empty() && printed ? protocol::kPassed : protocol::kFailed;
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app(
        "Connect a unit's port with a link, as a line that fails on purpose\n"
        "The station opens LINK instead of PORT. When PORT goes, LINK goes, and it returns with PORT. The line 'ready "
        "line=LINK seed=NUMBER' on standard error says that the station may send. 'headunitctl line' changes the "
        "faults "
        "meanwhile. Ends with SIGINT or SIGTERM, and prints what it did as JSON.",
        kProgram);
    Options options;
    addOptions(app, options);
    if (const auto status = programs::parse(app, argc, argv)) {
        return *status;
    }
    // A reader that went away, and a limit on file sizes, show as failed writes.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        return run(options);
    } catch (const protocol::Error& error) {
        report(error.what());
        return error.status();
    } catch (const std::exception& error) {
        report(error.what());
        return protocol::kFailed;
    }
}
