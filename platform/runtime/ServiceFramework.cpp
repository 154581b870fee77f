#include "platform/runtime/ServiceFramework.h"

#include <fcntl.h>
#include <glib.h>
#include <linux/close_range.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <future>
#include <limits>
#include <thread>

#include "KYRServiceFw.h"
#include "platform/runtime/BusName.h"
#include "platform/runtime/Report.h"

namespace runtime {
namespace {

constexpr const char* kBusName = "com.zent.linux.engineering";
constexpr std::chrono::seconds kBusPatience{3};

/// Leaves a tenth of the second within which the process has to end.
constexpr suseconds_t kEndUs = 900'000;

/// State of the start. Static, since the thread that waits for signals outlives all objects.
enum class Phase {
    kBefore,
    kInitialising,
    kRunning,
};
std::atomic<Phase> thePhase = Phase::kBefore;

/// Whether the process ends, or starts again.
std::atomic_flag theEnd;

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

/// An alarm, not a thread: an alarm needs nothing that may hang.
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
    // A service that is only partly initialised cannot be deinitialised. The watchdog limits the wait.
    thePhase.wait(Phase::kInitialising);
    KYR_ServiceFw_Deinit();
}

[[noreturn]] void endProcess(TtyWire& wire, OutputPump& out, OutputPump& error)
{
    armWatchdog();
    wire.withdraw();
    if (theEnd.test_and_set()) {
        _exit(EXIT_SUCCESS);
    }
    // At once: the watchdog, which writes nothing, may interrupt the rest.
    std::fflush(stdout);
    deinitialise();
    wire.stop();
    std::fflush(stdout);
    error.stop();
    out.stop();
    // No destructors: the threads of the service still run and use the objects.
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

/// The next file would get the number of a missing descriptor, and printed text would go into that file.
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
    signal(SIGCHLD, SIG_DFL);  // if the parent ignores it, waitpid() fails
    reportGlibMessagesOnce();
    // Files are for the owner and, to read, for the group. A stricter mask stays.
    umask(umask(S_IRWXG | S_IRWXO) | S_IWGRP | S_IRWXO);
    // GLib connects to the bus on threads of a pool and would keep idle ones for a while.
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
    // One line for both: the problem with the name of the service, and what else is missing on the bus.
    std::string trouble;
    if (outcome.state == BusName::State::kNoBus) {
        trouble = "serving the station only: no session bus: " + outcome.reason;
    }
    if (outcome.state == BusName::State::kTaken) {
        trouble = "serving the station only: another process owns the bus name " + name;
    }
    if (outcome.state == BusName::State::kLate) {
        trouble = "serving the station only, for now: the bus name " + name + " is not available in time";
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
    // KYR_ServiceFw_Exec() should not return. If it does, signals still end the process.
    for (;;) {
        pause();
    }
}

void ServiceFramework::restart(const std::vector<std::string>& arguments, int keep)
{
    constexpr std::chrono::milliseconds kOutputPatience{500};
    if (theEnd.test_and_set()) {
        return;
    }
    wire_.withdraw();
    std::fflush(stdout);
    // The new run needs the original descriptors. Whoever reads them may never do so.
    std::vector<std::future<void>> flushed;
    for (OutputPump* const pump : {&error_, &out_}) {
        std::promise<void> done;
        flushed.push_back(done.get_future());
        std::thread([pump, done = std::move(done)]() mutable {
            pump->stop();
            done.set_value();
        }).detach();
    }
    for (const auto& each : flushed) {
        each.wait_for(kOutputPatience);
    }

    std::vector<char*> words;
    for (const std::string& argument : arguments) {
        words.push_back(const_cast<char*>(argument.c_str()));
    }
    words.push_back(nullptr);
    close_range(STDERR_FILENO + 1, std::numeric_limits<unsigned>::max(), CLOSE_RANGE_CLOEXEC);
    fcntl(keep, F_SETFD, 0);
    execv("/proc/self/exe", words.data());
    report(std::string("cannot start again: ") + std::strerror(errno));
    _exit(EXIT_FAILURE);
}

}  // namespace runtime
