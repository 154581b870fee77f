// The test station's side of the line.

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>

#include "programs/Cli.h"
#include "programs/station/CommandLine.h"
#include "programs/station/Completion.h"
#include "programs/station/ExitStatuses.h"
#include "programs/station/Output.h"
#include "programs/station/Station.h"
#include "programs/station/Tool.h"
#include "protocol/Errors.h"
#include "protocol/catalogue/Codec.h"

namespace {

using namespace programs::station_tool;

station::Interrupt* interrupted = nullptr;

/// The first Ctrl-C ends what runs, the second its teardown too. The third ends the tool at once: they may wait for
/// something that does not come, such as a reader of standard output.
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

/// What waits is woken: system calls are not restarted.
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
        // Under nohup a terminal that closes is no reason to end.
        if (number != SIGHUP || before.sa_handler != SIG_IGN) {
            sigaction(number, &action, nullptr);
        }
    }
    // A reader of standard output that goes away must not end a run whose record is still to be written.
    std::signal(SIGPIPE, SIG_IGN);
    // Nor must a limit on the size of files: writing then fails as on a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
}

int run(const std::function<int()>& action)
{
    try {
        return action();
    } catch (const station::PortError& error) {
        programs::complain(kProgram, error.what() + missingPortHint(error.path()));
        return kPortUnavailable;
    } catch (const station::LinkError& error) {
        programs::complain(kProgram, error.what());
        return kLinkFailed;
    } catch (const station::Interrupted& error) {
        programs::complain(kProgram, error.what());
        return kInterrupted;
    } catch (const WrongUse& error) {
        programs::complain(kProgram, error.what());
        return kWrongUse;
    } catch (const protocol::Error& error) {
        programs::complain(kProgram, error.what());
        return error.status();
    } catch (const protocol::catalogue::EncodeError& error) {
        programs::complain(kProgram, error.what());
        return kWrongUse;
    } catch (const std::exception& error) {
        programs::complain(kProgram, error.what());
        return kFailed;
    }
}

/// @returns `status`, or failure when the data has not reached standard output.
int withOutputWritten(int status)
{
    const int error = flushStandardOutput();
    if (error == 0) {
        return status;
    }
    // "… | head" has what it wanted.
    if (error != EPIPE) {
        programs::complain(kProgram, std::string("standard output cannot be written: ") + std::strerror(error));
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
        CLI::App app("The test station's side of the line: sends commands, decodes replies, runs plans.");
        Station station(interrupt);
        station.guardConnections();
        Tool tool{app, false, {}, interrupt, &station, [&station] { return station.config().results; }};
        setUp(app, tool.json);
        app.add_option("--config", station.given,
                       "The station's file; by default $ENGINEERING_STATION, else /etc/engineering/station.toml")
            ->type_name("FILE");
        app.footer(exitStatusText());
        for (AddVerb* const add : kVerbs) {
            add(tool);
        }
        if (printCompletions(app, argc, argv)) {
            return withOutputWritten(kPassed);
        }
        if (const auto status = parseCommandLine(app, argc, argv)) {
            return withOutputWritten(*status);
        }
        return withOutputWritten(run(tool.action));
    } catch (const std::exception& error) {
        programs::complain(kProgram, error.what());
        return kFailed;
    }
}
