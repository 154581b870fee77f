#include "platform/runtime/ServiceFramework.h"

#include <fcntl.h>
#include <glib.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <thread>

#include "KYRServiceFw.h"
#include "platform/runtime/BusName.h"
#include "platform/runtime/Report.h"

namespace runtime {
namespace {

constexpr const char* kBusName = "com.zent.linux.engineering";
constexpr std::chrono::seconds kBusPatience{3};

/// Leaves a tenth of the second in which the process has to be gone.
constexpr suseconds_t kEndUs = 900'000;

/// How far the service's start has come. Static, since the thread that waits for signals outlives everything.
enum class Phase {
    kBefore,
    kInitialising,
    kRunning,
};
std::atomic<Phase> thePhase = Phase::kBefore;

sigset_t endSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    return signals;
}

void endNow(int)
{
    _exit(EXIT_SUCCESS);
}

/// An alarm rather than a thread: it needs nothing that may hang.
void armWatchdog()
{
    struct sigaction action = {};
    action.sa_handler = endNow;
    sigaction(SIGALRM, &action, nullptr);
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr);
    const itimerval timer{{0, 0}, {0, kEndUs}};
    setitimer(ITIMER_REAL, &timer, nullptr);
}

void deinitialise()
{
    if (thePhase == Phase::kBefore) {
        return;
    }
    // What is half there cannot be taken away. Should this take too long, the watchdog ends it.
    thePhase.wait(Phase::kInitialising);
    KYR_ServiceFw_Deinit();
}

[[noreturn]] void endProcess(TtyWire& wire, OutputPump& out, OutputPump& error)
{
    armWatchdog();
    wire.withdraw();
    // Now already: what follows may run into the watchdog, which writes nothing.
    std::fflush(stdout);
    deinitialise();
    wire.stop();
    std::fflush(stdout);
    error.stop();
    out.stop();
    // No destructors: the service's threads run to the end, and use what these would take away.
    _exit(EXIT_SUCCESS);
}

void endOnSignal(TtyWire& wire, OutputPump& out, OutputPump& error)
{
    const sigset_t signals = endSignals();
    int signal = 0;
    while (sigwait(&signals, &signal) != 0) {
    }
    endProcess(wire, out, error);
}

/// A descriptor that is missing would be given to the next file: then what is printed goes into it.
void openStandardDescriptors()
{
    int null = 0;
    do {
        null = open("/dev/null", O_RDWR);
    } while (null >= 0 && null <= STDERR_FILENO);
    close(null);
}

}  // namespace

void prepareProcess()
{
    openStandardDescriptors();
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
    signal(SIGCHLD, SIG_DFL);  // a parent that ignores it leaves children that nobody can wait for
    reportGlibMessagesOnce();
    // What the process makes is its owner's and, to read, the group's; a stricter mask stays.
    umask(umask(S_IRWXG | S_IRWXO) | S_IWGRP | S_IRWXO);
    // GLib connects to the bus on threads of a pool, of which it would keep several for a while without any use.
    g_thread_pool_set_max_unused_threads(0);
    signal(SIGTERM, endNow);
    signal(SIGINT, endNow);
    const sigset_t signals = endSignals();
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

void holdEndSignals()
{
    const sigset_t signals = endSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

ServiceFramework::ServiceFramework(TtyWire& wire) : wire_(wire), out_(STDOUT_FILENO), error_(STDERR_FILENO)
{
    std::thread(endOnSignal, std::ref(wire), std::ref(out_), std::ref(error_)).detach();
}

void ServiceFramework::initialise(int argc, char** argv)
{
    KYRServiceFw_Args args{argc, argv};
    thePhase = Phase::kInitialising;
    KYR_ServiceFw_Init(args);
    thePhase = Phase::kRunning;
    thePhase.notify_all();
}

void ServiceFramework::announceReady(const std::function<std::string()>& hint)
{
    const std::string name = kBusName;
    const BusName outcome = awaitBusName(name, kBusPatience);
    const std::string elseMissing = hint();
    // One line in all: what is wrong with the service's name, and what else is not on the bus.
    std::string trouble;
    if (outcome.state == BusName::State::kNoBus) {
        trouble = "no session bus, so only the station's line is served: " + outcome.reason;
    }
    if (outcome.state == BusName::State::kTaken) {
        trouble = "another process has the bus name " + name + ", so only the station's line is served";
    }
    if (outcome.state == BusName::State::kLate) {
        trouble = "the bus name " + name + " is not there in time, so at first only the station's line is served";
    }
    if (outcome.state != BusName::State::kNoBus && !elseMissing.empty()) {
        trouble += (trouble.empty() ? "" : "; ") + elseMissing;
    }
    if (!trouble.empty()) {
        report(trouble);
    }

    std::fprintf(stderr, "ready uart=%s\n", wire_.path().c_str());
    sd_notify(0, "READY=1");
}

void ServiceFramework::run()
{
    KYR_ServiceFw_Exec();
    // KYR_ServiceFw_Exec does not return; should a service's do, the signals still decide when the process ends.
    for (;;) {
        pause();
    }
}

}  // namespace runtime
