// The cost of the whole service, as a program on a bus of its own and a pseudo-terminal. Each figure stands beside its
// floor from the same minute: for the line, a process that only echoes; for the start, a process that only owns a name.

#include <gio/gio.h>
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "benchmarks/StationLoad.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TempDir.h"

namespace {

using benchmarks::StationLoad;
using tests::ChildProcess;
using Clock = std::chrono::steady_clock;

constexpr const char* kServiceName = "com.zent.linux.engineering";
constexpr const char* kFloorName = "com.zent.linux.engineering.floor";

constexpr int kRuns = 5;
constexpr int kRequests = 1000;
constexpr int kPaced = 300;
constexpr int kFlood = 100'000;
constexpr std::size_t kReplySize = 10;
constexpr std::chrono::seconds kIdle{1};

const StationLoad::Bytes kModeOn = {0x2A, 0xA2, 0x00, 0x03, 0x0F, 0x00, 0x01, 0x00, 0xFF, 0xED};
const StationLoad::Bytes kModeOff = {0x2A, 0xA2, 0x00, 0x03, 0x0F, 0x00, 0x00, 0x00, 0xFF, 0xEE};
const StationLoad::Bytes kAskReady = {0x2A, 0xA2, 0x00, 0x02, 0x0F, 0x01, 0xFF, 0xEE};
const StationLoad::Bytes kAskStatus = {0x2A, 0xA2, 0x00, 0x02, 0x0E, 0x03, 0xFF, 0xED};

/// Figures by name. Prints the median of the runs.
using Figures = std::map<std::string, std::vector<double>>;

double medianOf(std::vector<double> values)
{
    std::ranges::sort(values);
    return values.at(values.size() / 2);
}

void print(const Figures& figures, const Figures& floors, const char* unit)
{
    for (const auto& [name, values] : figures) {
        const double figure = medianOf(values);
        const double floor = medianOf(floors.at(name));
        std::printf("%-30s %11.1f %11.1f %8.2f  %s\n", name.c_str(), figure, floor, figure / floor, unit);
    }
    std::fflush(stdout);
}

/// @returns the value of `key` in /proc/PID/status; memory in kB.
double readStatus(pid_t pid, const std::string& key)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(key + ":")) {
            return std::strtod(line.c_str() + key.size() + 1, nullptr);
        }
    }
    throw std::runtime_error("the process " + std::to_string(pid) + " has ended");
}

class Service
{
public:
    Service(const std::string& program, const ChildProcess::Environment& environment)
        : process_({program, "--uart", "pty:" + link(), "--root", (directory_.path() / "root").string()}, environment)
    {
    }

    void awaitReady()
    {
        if (!process_.waitForLine(ChildProcess::Stream::kErr, "ready uart=")) {
            throw std::runtime_error("the service is not ready: " + process_.output(ChildProcess::Stream::kErr));
        }
    }

    std::string link() const { return (directory_.path() / "uart").string(); }
    pid_t pid() const { return process_.pid(); }

private:
    const tests::TempDir directory_;
    ChildProcess process_;
};

// ---- the line ----

struct Mode {
    const char* name;
    StationLoad::Bytes first;
    StationLoad::Bytes request;
};

void measureLine(StationLoad& line, const Mode& mode, Figures& times, Figures& rates)
{
    line.sendAndDrain(mode.first);
    const auto latency = line.roundTrip(mode.request, kReplySize, kRequests);
    const std::string name = mode.name;
    times[name + ".roundtrip.p50"].push_back(latency.p50Us);
    times[name + ".roundtrip.p99"].push_back(latency.p99Us);
    times[name + ".cpu_at_1000"].push_back(line.pacedCpuUs(mode.request, kReplySize, kPaced));
    rates[name + ".pipelined"].push_back(line.pipelined(mode.request, kReplySize, 2 * kRequests));
}

void measureLines(const std::string& program, const ChildProcess::Environment& environment)
{
    const Mode modes[] = {
        {"quiet", kModeOff, kAskReady}, {"reply_first", kModeOn, kAskReady}, {"emit_first", kModeOn, kAskStatus}};
    Service service(program, environment);
    service.awaitReady();
    const benchmarks::Echo echo(kAskReady.size(), kReplySize);
    StationLoad floorLine(echo.path(), echo.pid());
    StationLoad line(service.link(), service.pid());
    Figures times, timeFloors, rates, rateFloors;
    for (int run = 0; run <= kRuns; ++run) {
        if (run == 1) {  // the first one was to warm up
            for (Figures* const figures : {&times, &timeFloors, &rates, &rateFloors}) {
                figures->clear();
            }
        }
        for (const Mode& mode : modes) {
            measureLine(line, mode, times, rates);
            measureLine(floorLine, {mode.name, kAskReady, kAskReady}, timeFloors, rateFloors);
        }
    }
    print(times, timeFloors, "us");
    print(rates, rateFloors, "kframe/s, more is better");
}

// ---- a flood, with a subscriber ----

void measureFlood(const std::string& program, const std::string& self, const ChildProcess::Environment& environment)
{
    ChildProcess subscriber({self, "--subscribe"}, environment);
    if (!subscriber.waitForLine(ChildProcess::Stream::kOut, "subscribed")) {
        throw std::runtime_error("no subscriber");
    }
    Service service(program, environment);
    service.awaitReady();
    StationLoad line(service.link(), service.pid());
    line.sendAndDrain(kModeOn);
    line.flood(kAskStatus, kReplySize, 1000);
    const double before = readStatus(service.pid(), "VmRSS");
    const double rate = line.flood(kAskStatus, kReplySize, kFlood);
    const double peak = readStatus(service.pid(), "VmHWM");
    std::printf("%-30s %11.1f %11s %8s  kB of resident memory for %d frames at %.1f kframe/s\n", "flood.growth",
                peak - before, "", "", kFlood, rate);
    std::fflush(stdout);
}

// ---- the start ----

/// Waits, on this thread, until a name is owned.
class NameWatch
{
public:
    NameWatch(GDBusConnection* bus, const char* name) : loop_(g_main_loop_new(nullptr, FALSE))
    {
        id_ = g_bus_watch_name_on_connection(
            bus, name, G_BUS_NAME_WATCHER_FLAGS_NONE,
            [](GDBusConnection*, const gchar*, const gchar*, gpointer self) {
                static_cast<NameWatch*>(self)->set(true);
            },
            [](GDBusConnection*, const gchar*, gpointer self) { static_cast<NameWatch*>(self)->set(false); }, this,
            nullptr);
        wait(false);
    }
    ~NameWatch()
    {
        g_bus_unwatch_name(id_);
        g_main_loop_unref(loop_);
    }
    NameWatch(const NameWatch&) = delete;
    NameWatch& operator=(const NameWatch&) = delete;

    void wait(bool owned)
    {
        while (!known_ || owned_ != owned) {
            g_main_loop_run(loop_);
        }
    }

private:
    void set(bool owned)
    {
        known_ = true;
        owned_ = owned;
        g_main_loop_quit(loop_);
    }

    GMainLoop* loop_;
    guint id_ = 0;
    bool known_ = false;
    bool owned_ = false;
};

struct Started {
    pid_t pid;
    std::shared_ptr<void> process;
};

void measureStart(GDBusConnection* bus, const char* name, const std::function<Started()>& start, Figures& times,
                  Figures& sizes, Figures& threads)
{
    NameWatch watch(bus, name);
    const auto begin = Clock::now();
    auto started = start();
    watch.wait(true);
    times["start.to_name"].push_back(std::chrono::duration<double, std::milli>(Clock::now() - begin).count());
    std::this_thread::sleep_for(kIdle);  // GLib keeps the threads of the start for half a second
    sizes["start.resident"].push_back(readStatus(started.pid, "VmRSS"));
    threads["start.threads"].push_back(readStatus(started.pid, "Threads"));
    started.process.reset();
    watch.wait(false);
}

void measureStarts(const std::string& program, const std::string& self, const ChildProcess::Environment& environment,
                   const std::string& address)
{
    GDBusConnection* const bus = g_dbus_connection_new_for_address_sync(
        address.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, nullptr);
    Figures times, timeFloors, sizes, sizeFloors, threads, threadFloors;
    for (int run = 0; run <= kRuns; ++run) {
        if (run == 1) {
            for (Figures* const figures : {&times, &timeFloors, &sizes, &sizeFloors, &threads, &threadFloors}) {
                figures->clear();
            }
        }
        measureStart(
            bus, kServiceName,
            [&] {
                const auto service = std::make_shared<Service>(program, environment);
                return Started{service->pid(), service};
            },
            times, sizes, threads);
        measureStart(
            bus, kFloorName,
            [&] {
                const auto process =
                    std::make_shared<ChildProcess>(std::vector<std::string>{self, "--own-name"}, environment);
                return Started{process->pid(), process};
            },
            timeFloors, sizeFloors, threadFloors);
    }
    g_object_unref(bus);
    print(times, timeFloors, "ms");
    print(sizes, sizeFloors, "kB");
    print(threads, threadFloors, "");
}

// ---- other roles of this program ----

[[noreturn]] void ownName()
{
    g_bus_own_name(G_BUS_TYPE_SESSION, kFloorName, G_BUS_NAME_OWNER_FLAGS_NONE, nullptr, nullptr, nullptr, nullptr,
                   nullptr);
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
    std::exit(1);
}

[[noreturn]] void subscribe()
{
    GDBusConnection* const bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
    g_dbus_connection_signal_subscribe(
        bus, nullptr, kServiceName, nullptr, nullptr, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        [](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GVariant*, gpointer) {}, nullptr,
        nullptr);
    std::printf("subscribed\n");
    std::fflush(stdout);
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
    std::exit(1);
}

int usage()
{
    std::fprintf(stderr, "service_benchmark: the only option is --service PROGRAM; the default is %s\n",
                 ENGINEERING_SERVICE);
    return 2;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string_view> arguments(argv + 1, argv + argc);
    if (arguments == std::vector<std::string_view>{"--own-name"}) {
        ownName();
    }
    if (arguments == std::vector<std::string_view>{"--subscribe"}) {
        subscribe();
    }
    std::string program = ENGINEERING_SERVICE;
    if (arguments.size() == 2 && arguments[0] == "--service") {
        program = arguments[1];
    } else if (!arguments.empty()) {
        return usage();
    }

    try {
        const tests::PrivateBus bus;
        const ChildProcess::Environment environment{{"DBUS_SESSION_BUS_ADDRESS", bus.address()}};
        std::printf("%-30s %11s %11s %8s\n", "figure", "service", "floor", "ratio");
        const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
        measureLines(program, environment);
        measureFlood(program, self, environment);
        measureStarts(program, self, environment, bus.address());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "service_benchmark: %s\n", error.what());
        return 1;
    }
    return 0;
}
