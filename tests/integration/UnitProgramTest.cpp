// engineering-unit as a process over private buses, with templates of the middleware's interfaces behind it.

#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <linux/input.h>
#include <poll.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <csignal>
#include <fstream>
#include <nlohmann/json.hpp>

#include "host/Descriptor.h"
#include "platform/linux/ScriptedService.h"
#include "platform/linux/UnitTestFile.h"
#include "tests/integration/BenchTest.h"
#include "tests/support/BusClient.h"
#include "tests/support/WireVectors.h"

namespace tests {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using Stream = ChildProcess::Stream;

/// What systemd listens to.
class Supervisor
{
public:
    explicit Supervisor(const std::string& path) : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address{AF_UNIX, {}};
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }

    /// @returns the next message; empty if none comes within `patience`.
    std::string next(std::chrono::milliseconds patience = kGenerous)
    {
        pollfd polled{socket_.get(), POLLIN, 0};
        std::string message(256, '\0');
        message.resize(poll(&polled, 1, static_cast<int>(patience.count())) == 1
                           ? static_cast<std::size_t>(read(socket_.get(), message.data(), message.size()))
                           : 0);
        return message;
    }

    /// Drops all messages until none comes within `patience`.
    /// @returns whether this happens.
    bool awaitSilence(std::chrono::milliseconds patience)
    {
        const auto deadline = std::chrono::steady_clock::now() + kGenerous;
        while (std::chrono::steady_clock::now() < deadline) {
            if (next(patience).empty()) {
                return true;
            }
        }
        return false;
    }

private:
    host::Descriptor socket_;
};

/// A thread of a child process that stands still.
class FrozenThread
{
public:
    FrozenThread(pid_t process, const std::string& name)
    {
        for (const auto& task : std::filesystem::directory_iterator(fmt::format("/proc/{}/task", process))) {
            std::string its;
            std::getline(std::ifstream(task.path() / "comm"), its);
            if (its == name) {
                thread_ = std::stoi(task.path().filename());
            }
        }
        EXPECT_NE(thread_, 0) << name;
        isFrozen_ = ptrace(PTRACE_SEIZE, thread_, nullptr, nullptr) == 0 &&
                    ptrace(PTRACE_INTERRUPT, thread_, nullptr, nullptr) == 0 &&
                    waitpid(thread_, nullptr, __WALL) == thread_;
    }
    ~FrozenThread() { ptrace(PTRACE_DETACH, thread_, nullptr, nullptr); }
    FrozenThread(const FrozenThread&) = delete;
    FrozenThread& operator=(const FrozenThread&) = delete;

    /// @returns false where a process may not trace its children.
    bool isFrozen() const { return isFrozen_; }

private:
    pid_t thread_ = 0;
    bool isFrozen_ = false;
};

class UnitProgramTest : public BenchTest
{
protected:
    UnitProgramTest()
    {
        environment()["DBUS_SYSTEM_BUS_ADDRESS"] = bus().address();
        std::filesystem::create_directories(link().parent_path());
        writeUnitFile();
    }

    void writeUnitFile(const std::string& was = "", const std::string& is = "")
    {
        std::string text = unitFile(was, is);
        for (const auto& [old, now] : {std::pair("/tmp/root", root()), std::pair("/tmp/uart", link()),
                                       std::pair("/tmp/keyboard", directory() / "keyboard")}) {
            text.replace(text.find(old), std::string(old).size(), now.string());
        }
        std::ofstream(file()) << text;
    }

    std::string file() const { return directory() / "unit.toml"; }

    ChildProcess& startUnit()
    {
        ChildProcess& unit = start({ENGINEERING_UNIT, "--config", file()});
        EXPECT_TRUE(unit.waitForLine(Stream::kErr, "ready uart=" + link().string()));
        return unit;
    }

    /// Starts a template of a daemon's interface, which prints its calls.
    ChildProcess& startTemplate(const std::string& name)
    {
        return startDaemon({"/usr/bin/python3", "-u", "-m", "dbusmock", "--system", "-t", name});
    }

    /// Starts a program that the end of the test kills.
    ChildProcess& startDaemon(const std::vector<std::string>& arguments)
    {
        return *daemons_.emplace_back(std::make_unique<ChildProcess>(arguments, environment()));
    }

private:
    std::vector<std::unique_ptr<ChildProcess>> daemons_;
};

TEST_F(UnitProgramTest, StationReachesTheMiddlewareOfTheUnit)
{
    ChildProcess& logind = startTemplate("logind");
    startTemplate("systemd");
    startDaemon({"/lib/systemd/systemd-hostnamed"});
    ChildProcess& unit = startUnit();
    for (const char* interface :
         {"app-manager: systemd is up", "power: logind is up", "system-info: hostname1 is up"}) {
        EXPECT_TRUE(unit.waitForLine(Stream::kErr, interface)) << unit.output(Stream::kErr);
    }

    RawLine line(link());
    line.expectExchange(wire::kModeOn, wire::kModeOnReply);
    line.expectExchange({0x2A, 0xA2, 0x00, 0x02, 0x07, 0x06, 0xFF, 0xF1},  // the project's name: board
                        {0x2A, 0xA2, 0x00, 0x07, 0x87, 0x06, 0x62, 0x6F, 0x61, 0x72, 0x64, 0x00, 0xFD, 0x64});
    line.write({0x2A, 0xA2, 0x00, 0x02, 0x09, 0x0C, 0xFF, 0xE9});  // shut down
    EXPECT_TRUE(logind.waitForLine(Stream::kOut, "PowerOff"));

    logind.signal(SIGKILL);
    EXPECT_TRUE(unit.waitForLine(Stream::kErr, "power: logind is absent: org.freedesktop.login1 is not running"));
    line.expectExchange(wire::kModeOn, wire::kModeOnReply);
}

TEST_F(UnitProgramTest, StationStartsTheAccessPoint)
{
    writeUnitFile("units = { wifi = \"car-wifi.service\" }\n", "");
    ChildProcess& manager = startTemplate("networkmanager");
    BusClient client(bus().address());
    ASSERT_TRUE(client.waitForOwner("org.freedesktop.NetworkManager", true));
    const host::GlibPtr<GVariant> device(g_dbus_connection_call_sync(
        client.connection(), "org.freedesktop.NetworkManager", "/org/freedesktop", "org.freedesktop.DBus.Mock",
        "AddWiFiDevice", g_variant_new("(ssi)", "wlan7", "wlan7", 30), nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
        nullptr));
    ASSERT_TRUE(device);
    ChildProcess& unit = startUnit();
    EXPECT_TRUE(unit.waitForLine(Stream::kErr, "wifi: networkmanager is up")) << unit.output(Stream::kErr);

    const wire::Bytes askReady = {0x2A, 0xA2, 0x00, 0x02, 0x10, 0x09, 0xFF, 0xE5};
    {
        RawLine line(link());
        line.expectExchange(wire::kModeOn, wire::kModeOnReply);
        line.expectExchange(askReady, {0x2A, 0xA2, 0x00, 0x03, 0x90, 0x09, 0x00, 0x00, 0xFF, 0x64});
        line.write({0x2A, 0xA2, 0x00, 0x03, 0x10, 0x00, 0x01, 0x00, 0xFF, 0xEC});  // start
    }
    const wire::Bytes ready = {0x2A, 0xA2, 0x00, 0x03, 0x90, 0x09, 0x01, 0x00, 0xFF, 0x63};
    EXPECT_TRUE(pollLine(askReady, ready.size(), [&](const auto& reply) { return reply == ready; }));
    const wire::Bytes askText = {0x2A, 0xA2, 0x00, 0x02, 0x10, 0x06, 0xFF, 0xE8};
    const wire::Bytes text = {0x2A, 0xA2, 0x00, 0x08, 0x90, 0x06, 0x43, 0x61, 0x72, 0x20, 0x31, 0x32, 0xFD, 0xC9};
    RawLine line(link());
    line.expectExchange(askText, text);  // Car 12

    manager.signal(SIGSTOP);
    line.expectExchange(askText, text);
    manager.signal(SIGKILL);
    EXPECT_TRUE(unit.waitForLine(Stream::kErr,
                                 "wifi: networkmanager is absent: org.freedesktop.NetworkManager is not running; "
                                 "install network-manager"));
    line.expectExchange(askText, text);
}

TEST_F(UnitProgramTest, StationReadsAnAbsentRadioAsFmWithoutAFrequency)
{
    ChildProcess& unit = startUnit();
    EXPECT_TRUE(
        unit.waitForLine(Stream::kErr, "tuner: v4l2 is absent: /nonexistent/radio0: No such file or directory"));

    RawLine line(link());
    line.expectExchange(wire::kModeOn, wire::kModeOnReply);
    line.write({0x2A, 0xA2, 0x00, 0x04, 0x02, 0x00, 0x22, 0x2E, 0xFF, 0xAA});  // play 8750
    EXPECT_TRUE(unit.waitForLine(Stream::kErr, "tuner: a request was refused: the radio is absent"));
    line.write({0x2A, 0xA2, 0x00, 0x03, 0x02, 0x04, 0x01, 0x00, 0xFF, 0xF6});  // seek up
    line.expectExchange({0x2A, 0xA2, 0x00, 0x02, 0x02, 0x03, 0xFF, 0xF9},      // band
                        {0x2A, 0xA2, 0x00, 0x03, 0x82, 0x03, 0x00, 0x00, 0xFF, 0x78});
    line.expectExchange({0x2A, 0xA2, 0x00, 0x02, 0x02, 0x01, 0xFF, 0xFB},  // frequency
                        {0x2A, 0xA2, 0x00, 0x04, 0x82, 0x01, 0x00, 0x00, 0xFF, 0x79});
    line.expectExchange({0x2A, 0xA2, 0x00, 0x02, 0x02, 0x17, 0xFF, 0xE5},  // traffic announcement
                        {0x2A, 0xA2, 0x00, 0x03, 0x82, 0x17, 0x00, 0x00, 0xFF, 0x64});
    line.expectExchange({0x2A, 0xA2, 0x00, 0x02, 0x02, 0x18, 0xFF, 0xE4},  // last frequency of FM
                        {0x2A, 0xA2, 0x00, 0x06, 0x82, 0x18, 0x00, 0x00, 0x00, 0x00, 0xFF, 0x60});
}

TEST_F(UnitProgramTest, StationReachesPlayersKeysAndSourcesOfABoardWithoutAnHmi)
{
    constexpr const char* kPlayer = "/org/mpris/MediaPlayer2";
    writeUnitFile(
        "[audio]\nbackend = \"off\"\ncard = \"hw:0\"\nelement = \"Master\"\nsteps = 40\n[source]\nbackend = \"off\"",
        "[audio]\nbackend = \"alsa\"\ncard = \"hw:31\"\nelement = \"Master\"\n[source]\nbackend = \"table\"");
    const std::string keyboard = directory() / "keyboard";
    ASSERT_EQ(mkfifo(keyboard.c_str(), 0600), 0);
    const host::Descriptor keys(open(keyboard.c_str(), O_RDWR | O_CLOEXEC));
    ScriptedService player(bus().address(), "org.mpris.MediaPlayer2.usb");
    player.answer("Get", "(<[objectpath '/a', '/b']>,)");
    player.setProperty(kPlayer, "org.mpris.MediaPlayer2.Player", "Metadata", "{'mpris:trackid': <objectpath '/b'>}");
    ChildProcess& hmi = start({ENGINEERING_HMI, "--unit", "--config", file()});
    EXPECT_TRUE(hmi.waitForLine(Stream::kErr, "ready"));
    ChildProcess& unit = startUnit();
    for (const char* part : {"service: dbus is up", "player 1: mpris is up", "keyboard: evdev is up",
                             "audio: alsa is absent: hw:31: No such file or directory; "}) {
        EXPECT_TRUE(hmi.waitForLine(Stream::kErr, part)) << hmi.output(Stream::kErr);
    }
    EXPECT_TRUE(unit.waitForLine(Stream::kErr, "audio: alsa is absent: hw:31: No such file or directory; "));
    // Of the two sources, the player is there.
    EXPECT_TRUE(unit.waitForLine(Stream::kErr, [](const std::string& text) {
        return text.ends_with(" source: table is absent: source 1: org.freedesktop.systemd1 is not running");
    })) << unit.output(Stream::kErr);

    RawLine line(link());
    line.expectExchange(wire::kModeOn, wire::kModeOnReply);
    line.write({0x2A, 0xA2, 0x00, 0x03, 0x03, 0x00, 0x00, 0x00, 0xFF, 0xFA});  // play action 1
    EXPECT_THAT(player.waitForCalls(1), ElementsAre("Play ()"));
    line.expectExchange({0x2A, 0xA2, 0x00, 0x02, 0x03, 0x05, 0xFF, 0xF6},  // the track: the second one
                        {0x2A, 0xA2, 0x00, 0x03, 0x83, 0x05, 0x01, 0x00, 0xFF, 0x74});
    line.expectExchange({0x2A, 0xA2, 0x00, 0x03, 0x06, 0x0B, 0x01, 0x00, 0xFF, 0xEB},  // report keys
                        {0x2A, 0xA2, 0x00, 0x03, 0x86, 0x0B, 0x01, 0x00, 0xFF, 0x6B});
    for (const int value : {1, 0}) {
        input_event key{};
        key.type = EV_KEY;
        key.code = 115;
        key.value = value;
        ASSERT_EQ(write(keys.get(), &key, sizeof key), ssize_t{sizeof key});
    }
    EXPECT_EQ(line.read(10), (std::vector<std::uint8_t>{0x2A, 0xA2, 0x00, 0x03, 0x86, 0x11, 0x10, 0x00, 0xFF, 0x56}));

    line.write({0x2A, 0xA2, 0x00, 0x03, 0x00, 0x00, 0x07, 0x00, 0xFF, 0xF6});  // source 16, the station's 7
    line.expectExchange({0x2A, 0xA2, 0x00, 0x02, 0x00, 0x01, 0xFF, 0xFD},
                        {0x2A, 0xA2, 0x00, 0x03, 0x80, 0x01, 0x07, 0x00, 0xFF, 0x75});
    EXPECT_THAT(player.waitForCalls(2), ElementsAre("Play ()", "Play ()"));
    line.expectExchange({0x2A, 0xA2, 0x00, 0x02, 0x01, 0x01, 0xFF, 0xFC},  // the volume: 0 without a card
                        {0x2A, 0xA2, 0x00, 0x03, 0x81, 0x01, 0x00, 0x00, 0xFF, 0x7B});
}

TEST_F(UnitProgramTest, HmiOfABoardExpectsItsSection)
{
    std::ofstream(file()) << unitFile().substr(0, unitFile().find("[hmi]"));

    const Outcome outcome = run({ENGINEERING_HMI, "--unit", "--config", file()});

    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(linesOf(outcome.err), ElementsAre(HasSubstr("unit.toml: expected the section [hmi], got none")));
}

TEST_F(UnitProgramTest, WithoutAnyMiddlewareTheStationIsServed)
{
    startUnit();

    RawLine(link()).expectExchange(wire::kModeOn, wire::kModeOnReply);
}

TEST_F(UnitProgramTest, CheckSaysLineByLineWhatIsThereAndWhatIsMissing)
{
    startTemplate("logind");

    const Outcome outcome = run({ENGINEERING_UNIT, "check", "--config", file()});

    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, testing::IsEmpty());
    const auto lines = linesOf(outcome.out);
    ASSERT_EQ(lines.size(), 23U) << outcome.out;
    EXPECT_THAT(lines[1], StartsWith("uart           pty             up"));
    EXPECT_THAT(lines[2], StartsWith("system-bus     dbus            up"));
    EXPECT_THAT(lines[3], StartsWith("session-bus    dbus            up"));
    EXPECT_THAT(lines[4], StartsWith("app-manager    systemd         absent  org.freedesktop.systemd1 is not running"));
    EXPECT_THAT(lines[5], StartsWith("power          logind          up"));
    EXPECT_THAT(lines[8], StartsWith("audio          off             off"));
}

TEST_F(UnitProgramTest, CheckPrintsTheSameAsJson)
{
    const Outcome outcome = run({ENGINEERING_UNIT, "check", "--json", "--config", file()});

    EXPECT_EQ(outcome.status, 1);
    const auto json = nlohmann::json::parse(outcome.out);
    ASSERT_EQ(json.size(), 22U);
    EXPECT_EQ(json[2],
              nlohmann::json::parse(R"({"interface": "session-bus", "backend": "dbus", "state": "up", "reason": ""})"));
}

TEST_F(UnitProgramTest, WatchdogIsFedUntilTheLineOrTheBackendsHang)
{
    constexpr std::chrono::milliseconds kTimeout{300};
    Supervisor supervisor(directory() / "notify");
    environment()["NOTIFY_SOCKET"] = directory() / "notify";
    environment()["WATCHDOG_USEC"] = std::to_string(std::chrono::microseconds(kTimeout).count());
    const ChildProcess& unit = startUnit();
    std::string message = supervisor.next();
    while (message == "WATCHDOG=1") {
        message = supervisor.next();
    }
    EXPECT_EQ(message, "READY=1");

    for (const char* thread : {"uart", "backends"}) {
        EXPECT_EQ(supervisor.next(), "WATCHDOG=1");
        const FrozenThread frozen(unit.pid(), thread);
        if (!frozen.isFrozen()) {
            GTEST_SKIP() << "this machine does not let a process trace its children";
        }
        EXPECT_TRUE(supervisor.awaitSilence(kTimeout)) << thread;
    }
    EXPECT_EQ(supervisor.next(), "WATCHDOG=1");
}

TEST_F(UnitProgramTest, MistakesInTheFileEndItWithALineEach)
{
    writeUnitFile("power-state = 3", "power-state = 300\nstate = 1");

    const Outcome outcome = run({ENGINEERING_UNIT, "--config", file()});

    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(linesOf(outcome.err), ElementsAre(HasSubstr("unit.toml:9:15: "), HasSubstr("unit.toml:10:1: ")));
}

}  // namespace
}  // namespace tests
