// The test station's side of the line.

#include <fmt/format.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>

#include "programs/Cli.h"
#include "programs/station/Completion.h"
#include "programs/station/Station.h"
#include "programs/station/Tool.h"

namespace {

using namespace programs::station_tool;

station::Interrupt* interrupted = nullptr;

/// The first Ctrl-C ends the run, the second its teardown too. The third ends the tool at once: both may wait for
/// something that never comes, such as a reader of standard output.
constexpr int kLastRequest = 3;

void onSignal(int number)
{
    static std::atomic<int> requests = 0;
    if (number == SIGINT && ++requests == kLastRequest) {
        _exit(kInterrupted);
    }
    const int error = errno;
    interrupted->request();
    errno = error;
}

/// System calls are not restarted, so every wait ends.
void endOnSignals(station::Interrupt& interrupt)
{
    interrupted = &interrupt;
    struct sigaction action {
    };
    action.sa_handler = onSignal;
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before {
        };
        sigaction(number, nullptr, &before);
        // Under nohup the tool goes on after its terminal closes.
        if (number != SIGHUP || before.sa_handler != SIG_IGN) {
            sigaction(number, &action, nullptr);
        }
    }
    // A run must still write its record after the reader of standard output has gone.
    std::signal(SIGPIPE, SIG_IGN);
    // At a limit on the size of files, writing then fails as on a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
}

int run(const Tool& tool)
{
    try {
        return tool.action();
    } catch (const protocol::Error& error) {
        return printError(error.what() + error.remedy(), error.kind(), error.status(), tool.json);
    } catch (const std::exception& error) {
        return printError(error.what(), "internal", kFailed, tool.json);
    }
}

/// @returns `status`, or failure when the data has not reached standard output.
int withOutputWritten(int status)
{
    const int error = flushStandardOutput();
    if (error == 0) {
        return status;
    }
    // The reader of "… | head" has enough.
    if (error != EPIPE) {
        programs::complain(kProgram, fmt::format("standard output: cannot be written: {}", std::strerror(error)));
    }
    return status == kPassed ? static_cast<int>(kFailed) : status;
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        station::Interrupt interrupt;
        endOnSignals(interrupt);
        watchStandardOutput();
        CLI::App app("Test a head unit over its engineering line: send commands, decode replies, run plans");
        Station station(interrupt);
        station.guardConnections();
        Tool tool{app, false, {}, interrupt, &station, [&station] { return station.config().results; }};
        setUp(tool);
        if (printCompletions(app, argc, argv)) {
            return withOutputWritten(kPassed);
        }
        if (const auto status = parseCommandLine(app, argc, argv)) {
            return withOutputWritten(*status);
        }
        return withOutputWritten(run(tool));
    } catch (const std::exception& error) {
        programs::complain(kProgram, error.what());
        return kFailed;
    }
}
