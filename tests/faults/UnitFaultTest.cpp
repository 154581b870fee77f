// The daemons behind engineering-unit, or their bus, end, stand still or come back while a station speaks with it. The
// station's line must not notice.

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <fstream>
#include <map>
#include <memory>
#include <ostream>

#include "platform/linux/UnitTestFile.h"
#include "station/FrameScanner.h"
#include "tests/faults/ProcessFigures.h"
#include "tests/faults/Soak.h"
#include "tests/integration/BenchTest.h"
#include "tests/support/BusClient.h"
#include "tests/support/WireVectors.h"

namespace tests {
namespace {

using protocol::Frame;
using std::chrono::steady_clock;
using wire::Bytes;
using Stream = ChildProcess::Stream;

// 03+8F+FF+01 = 0192, two's complement FE6E
const Bytes kModeIsOn{0x2A, 0xA2, 0x00, 0x03, 0x8F, 0xFF, 0x01, 0x00, 0xFE, 0x6E};

/// A daemon, and how a station reaches it.
struct Daemon {
    /// As the status names it: the interface and its backend.
    std::string interface;
    std::string backend;
    /// Starts the daemon; gpsd needs its sockets, too.
    std::vector<std::string> command;
    /// Its name on the bus; empty for gpsd.
    std::string name;
    /// What asks the interface, and makes it ask the daemon.
    std::vector<Frame> commands;
    /// The call that gives a template a device: its object, interface, method and arguments.
    std::array<const char*, 4> device{};
};

void PrintTo(const Daemon& daemon, std::ostream* out)
{
    *out << daemon.backend;
}

std::vector<std::string> mock(const std::vector<std::string>& what)
{
    std::vector<std::string> command{"/usr/bin/python3", "-m", "dbusmock", "--system"};
    command.insert(command.end(), what.begin(), what.end());
    return command;
}

const std::vector<Daemon>& daemons()
{
    const auto ofTemplate = [](const char* name) { return mock({"-t", name}); };
    static const std::vector<Daemon> kDaemons{
        {"app-manager",
         "systemd",
         ofTemplate("systemd"),
         "org.freedesktop.systemd1",
         {{0x09, 0x10, {0}}, {0x09, 0x10, {1}}}},
        {"power", "logind", ofTemplate("logind"), "org.freedesktop.login1", {{0x06, 0x14, {}}, {0x09, 0x0C, {}}}},
        {"system-info",
         "hostname1",
         {"/lib/systemd/systemd-hostnamed"},
         "org.freedesktop.hostname1",
         {{0x07, 0x01, {}}}},
        {"bluetooth",
         "bluez",
         ofTemplate("bluez5"),
         "org.bluez",
         {{0x04, 0x07, {}}, {0x04, 0x08, {}}},
         {"/org/bluez", "org.bluez.Mock", "AddAdapter", "('hci0', 'car')"}},
        {"phone", "ofono", ofTemplate("ofono"), "org.ofono", {{0x04, 0x15, {}}, {0x04, 0x03, {1}}}},
        {"location", "gpsd", {"/usr/sbin/gpsd", "-N"}, "", {{0x05, 0x00, {}}, {0x05, 0x02, {}}}},
        {"wifi",
         "networkmanager",
         ofTemplate("networkmanager"),
         "org.freedesktop.NetworkManager",
         {{0x10, 0x09, {}}, {0x10, 0x00, {1}}},
         {"/org/freedesktop", "org.freedesktop.DBus.Mock", "AddWiFiDevice", "('wlan7', 'wlan7', 30)"}},
        {"system-update",
         "rauc",
         mock({"de.pengutronix.rauc", "/", "de.pengutronix.rauc.Installer"}),
         "de.pengutronix.rauc",
         {{0x0E, 0x05, {}}}},
    };
    return kDaemons;
}

class UnitFaultTest : public BenchTest
{
protected:
    UnitFaultTest()
    {
        // A bus that starts again has another GUID, which a system's address does not have either.
        environment()["DBUS_SYSTEM_BUS_ADDRESS"] = bus().address().substr(0, bus().address().find(','));
        environment()["DBUS_SESSION_BUS_ADDRESS"] = environment()["DBUS_SYSTEM_BUS_ADDRESS"];
        std::filesystem::create_directories(link().parent_path());
        // A port that is free now.
        const host::GlibPtr<GSocketListener> listener(g_socket_listener_new());
        port_ = std::to_string(g_socket_listener_add_any_inet_port(listener.get(), nullptr, nullptr));
        g_socket_listener_close(listener.get());
        std::string text = unitFile();
        for (const auto& [old, now] : {std::pair<std::string, std::string>("/tmp/root", root()),
                                       {"/tmp/uart", link()},
                                       {"port = 9", "port = " + port_}}) {
            text.replace(text.find(old), old.size(), now);
        }
        std::ofstream(directory() / "unit.toml") << text;
    }

    ChildProcess& startUnit()
    {
        ChildProcess& unit = start({ENGINEERING_UNIT, "--config", directory() / "unit.toml"});
        EXPECT_TRUE(unit.waitForLine(Stream::kErr, "ready uart=")) << unit.output(Stream::kErr);
        RawLine(link()).expectExchange(wire::kModeOn, wire::kModeOnReply);
        return unit;
    }

    ChildProcess& startDaemon(const Daemon& daemon)
    {
        std::vector<std::string> command = daemon.command;
        if (daemon.name.empty()) {
            command.insert(command.end(), {"-F", directory() / "gpsd", "-S", port_});
        }
        auto& process = daemons_[daemon.backend];
        process = std::make_unique<ChildProcess>(command, environment());
        if (const auto& [object, interface, method, arguments] = daemon.device; object != nullptr) {
            BusClient client(*environment()["DBUS_SYSTEM_BUS_ADDRESS"]);
            EXPECT_TRUE(client.waitForOwner(daemon.name, true));
            host::GlibError error;
            const host::GlibPtr<GVariant> tuple(g_variant_parse(nullptr, arguments, nullptr, nullptr, nullptr));
            const host::GlibPtr<GVariant> reply(
                g_dbus_connection_call_sync(client.connection(), daemon.name.c_str(), object, interface, method,
                                            tuple.get(), nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, error.out()));
            EXPECT_TRUE(reply) << error.message();
        }
        return *process;
    }

    /// @returns how often the unit has reported that the daemon's interface is in `state`.
    static std::ptrdiff_t reports(const ChildProcess& unit, const Daemon& daemon, const std::string& state)
    {
        const std::string report = " " + daemon.interface + ": " + daemon.backend + " is " + state;
        return std::ranges::count_if(unit.lines(Stream::kErr), [&](const std::string& line) {
            return line.ends_with(report) || line.find(report + ": ") != std::string::npos;
        });
    }

    /// @returns the commands on the line, and a question behind them.
    static Bytes asked(const std::vector<Frame>& commands)
    {
        Bytes request;
        for (const Frame& command : commands) {
            const Bytes bytes = station::wireBytes(command);
            request.insert(request.end(), bytes.begin(), bytes.end());
        }
        request.insert(request.end(), wire::kAskMode.begin(), wire::kAskMode.end());
        return request;
    }

    /// @returns all bytes up to the answer to the question behind the commands; less if the line falls silent.
    static Bytes answerTo(RawLine& line, const Bytes& request)
    {
        line.write(request);
        Bytes answer = line.read(kModeIsOn.size());
        bool isSilent = answer.size() < kModeIsOn.size();
        while (!isSilent && !std::equal(kModeIsOn.rbegin(), kModeIsOn.rend(), answer.rbegin())) {
            const Bytes more = line.read(2);
            answer.insert(answer.end(), more.begin(), more.end());
            isSilent = more.empty();
        }
        EXPECT_FALSE(isSilent) << "the line has fallen silent";
        return answer;
    }

    /// Sends `commands` again and again, each time with a question behind them, until `isDone` says so. Notes how long
    /// the slowest question takes to be answered.
    template <class IsDone>
    void converse(RawLine& line, const std::vector<Frame>& commands, IsDone isDone)
    {
        const Bytes request = asked(commands);
        const auto giveUp = steady_clock::now() + kGenerous;
        do {
            const auto before = steady_clock::now();
            ASSERT_LT(before, giveUp) << "it did not happen";
            answerTo(line, request);
            slowest_ = std::max(slowest_, steady_clock::now() - before);
        } while (!isDone() && !HasFailure());
    }

    /// As above, this often.
    void converse(RawLine& line, const std::vector<Frame>& commands, int count)
    {
        converse(line, commands, [&] { return --count <= 0; });
    }

    /// @returns the longest time since the last call.
    std::chrono::duration<double> slowest() { return std::exchange(slowest_, {}); }

private:
    std::string port_;
    std::map<std::string, std::unique_ptr<ChildProcess>> daemons_;
    steady_clock::duration slowest_{};
};

/// A loaded machine holds answers up, too, but not in every round.
constexpr int kRounds = 5;
constexpr double kMost = kSanitized ? 1 : 0.1;  // s

class DaemonFaultTest : public UnitFaultTest, public testing::WithParamInterface<Daemon>
{
};

TEST_P(DaemonFaultTest, StandsStillEndsAndComesBackWhileTheStationIsAnswered)
{
    const Daemon& daemon = GetParam();
    ChildProcess* process = &startDaemon(daemon);
    ChildProcess& unit = startUnit();
    RawLine line(link());
    const auto isAgain = [&](const std::string& state) {
        return [&, state, before = reports(unit, daemon, state)] { return reports(unit, daemon, state) > before; };
    };
    converse(line, daemon.commands, [&] { return reports(unit, daemon, "up") > 0; });
    double most = kMost;
    for (int round = 0; round < kRounds && most >= kMost && !HasFatalFailure(); ++round) {
        slowest();
        process->signal(SIGSTOP);
        converse(line, daemon.commands, 20);
        process->signal(SIGCONT);
        converse(line, daemon.commands, 20);
        const auto isAbsent = isAgain("absent");
        process->signal(SIGKILL);
        converse(line, daemon.commands, isAbsent);
        const auto isUp = isAgain("up");
        process = &startDaemon(daemon);
        converse(line, daemon.commands, isUp);
        most = slowest().count();
        showFigure("slowest answer", 1e3 * most, "ms");
    }
    EXPECT_LT(most, kMost);
}

INSTANTIATE_TEST_SUITE_P(Unit, DaemonFaultTest, testing::ValuesIn(daemons()),
                         [](const auto& row) { return row.param.backend; });

TEST_F(UnitFaultTest, BusThatEndsAndStartsAgainIsFollowed)
{
    for (const Daemon& daemon : daemons()) {
        startDaemon(daemon);
    }
    ChildProcess& unit = startUnit();
    RawLine line(link());
    const std::vector<Frame> commands{{0x06, 0x14, {}}, {0x07, 0x01, {}}, {0x04, 0x07, {}}, {0x04, 0x15, {}}};
    const auto all = [&](const char* state, std::ptrdiff_t count) {
        return [&unit, state, count] {
            return std::ranges::all_of(daemons(), [&](const Daemon& daemon) {
                return daemon.name.empty() || reports(unit, daemon, state) >= count;
            });
        };
    };
    converse(line, commands, all("up", 1));

    bus().kill();
    converse(line, commands, all("absent", 1));
    bus().startAgain();
    for (const Daemon& daemon : daemons()) {
        startDaemon(daemon);
    }
    converse(line, commands, all("up", 2));
}

TEST_F(UnitFaultTest, AnyNumberOfCommandsLeavesMemoryDescriptorsAndThreadsAsTheyAre)
{
    for (const Daemon& daemon : daemons()) {
        startDaemon(daemon);
    }
    const ChildProcess& unit = startUnit();
    RawLine line(link());
    // Each asks another interface, one of them its daemon.
    const std::vector<Frame> commands{{0x06, 0x14, {}}, {0x07, 0x01, {}}, {0x04, 0x07, {}}, {0x04, 0x15, {}},
                                      {0x05, 0x00, {}}, {0x10, 0x09, {}}, {0x0E, 0x05, {}}};
    converse(line, commands, [&] {
        return std::ranges::all_of(daemons(), [&](const Daemon& each) { return reports(unit, each, "up") > 0; });
    });
    constexpr std::size_t kBurst = 20;
    Bytes request;
    Bytes answer;
    for (std::size_t i = 0; i < kBurst; ++i) {
        const Bytes once = asked(commands);
        const Bytes answered = answerTo(line, once);
        request.insert(request.end(), once.begin(), once.end());
        answer.insert(answer.end(), answered.begin(), answered.end());
    }
    const auto exchange = [&](std::size_t wanted) {
        for (std::size_t sent = 0; sent < wanted && !HasFailure(); sent += kBurst * (commands.size() + 1)) {
            line.expectExchange(request, answer);
        }
    };
    exchange(5'000);
    const ProcessFigures before = figuresOf(unit.pid());

    const std::size_t wanted = lengthOf(100'000, 1'000'000);
    const auto start = steady_clock::now();
    exchange(wanted / 2);
    const ProcessFigures halfway = figuresOf(unit.pid());
    exchange(wanted / 2);
    const std::chrono::duration<double> took = steady_clock::now() - start;

    const ProcessFigures after = figuresAfter(before, unit.pid());
    expectConstant(before, after);
    showFigure("of this in the second half",
               (static_cast<double>(after.residentBytes) - static_cast<double>(halfway.residentBytes)) / 1e6, "MB");
    showFigure("commands a second", static_cast<double>(wanted) / took.count(), "1/s");
}

}  // namespace
}  // namespace tests
