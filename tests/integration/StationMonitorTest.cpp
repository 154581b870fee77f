#include <gmock/gmock.h>

#include <csignal>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/integration/BenchTest.h"
#include "tests/support/PtyPeer.h"

namespace tests {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using Stream = ChildProcess::Stream;

class StationMonitorTest : public BenchTest
{
protected:
    ChildProcess& monitor(const std::vector<std::string>& arguments)
    {
        std::vector<std::string> all{ENGINEERING_STATION, "monitor"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return start(all);
    }

    void expectLine(ChildProcess& process, std::string_view part)
    {
        EXPECT_TRUE(process.waitForLine(Stream::kOut, part))
            << part << "\n"
            << process.output(Stream::kOut) << process.output(Stream::kErr);
    }

    void interrupt(ChildProcess& process)
    {
        process.signal(SIGINT);
        expectEnd(process, 0);
    }

    std::string capture() const { return directory() / "trace.pcapng"; }
};

TEST_F(StationMonitorTest, ShowsWhatTheUnitSendsByItselfAndGivesTheModeBack)
{
    startService();
    auto& process = monitor({"--enter-test-mode", "--hex"});
    expectLine(process, "received  test.set-mode: mode=1 (on)  | 2A A2 00 03 8F 00 01 00 FF 6D");

    run({HEADUNITCTL, "event", "OnU6PersistFactoryResetMode"});
    expectLine(process, "| 2A A2 00 03 86 13 01 00");
    interrupt(process);

    EXPECT_THAT(process.output(Stream::kErr), IsEmpty());
    EXPECT_THAT(run({ENGINEERING_STATION, "send", "0F", "FF"}).out, HasSubstr("8F FF [00]"));
}

TEST_F(StationMonitorTest, FilterHidesTheRestAndTheCaptureHoldsAll)
{
    startService();
    auto& process = monitor({"--enter-test-mode", "--filter", "received 06", "--pcapng", capture(), "--json"});
    // Not shown, so that there is nothing to wait for but the event itself, again and again.
    while (linesOf(process.output(Stream::kOut)).empty() && !process.wait(std::chrono::nanoseconds(0))) {
        run({HEADUNITCTL, "event", "OnU6PersistFactoryResetMode"});
    }
    interrupt(process);

    for (const std::string& line : linesOf(process.output(Stream::kOut))) {
        const json frame = json::parse(line);
        EXPECT_EQ(frame["type"], "frame");
        EXPECT_EQ(frame["direction"], "received");
        EXPECT_EQ(frame["cmd_one"], 0x86);
        EXPECT_EQ(frame["cmd_two"], 0x13);
    }
    const auto all = run({ENGINEERING_STATION, "monitor", "--replay", capture()});
    EXPECT_EQ(all.status, 0) << all.err;
    EXPECT_THAT(all.out, HasSubstr("sent      test.set-mode: mode=1 (on)"));
    EXPECT_THAT(all.out, HasSubstr("sent      test.set-mode: mode=0 (off)"));
    const auto some = run({ENGINEERING_STATION, "monitor", "--replay", capture(), "--filter", "sent test.set-mode"});
    EXPECT_THAT(linesOf(some.out), SizeIs(2));
}

TEST_F(StationMonitorTest, ServiceThatEndsAndStartsAgainIsShownAndPutIntoTestModeAgain)
{
    auto& first = startService();
    auto& process = monitor({"--enter-test-mode"});
    expectLine(process, "received  test.set-mode: mode=1 (on)");

    first.signal(SIGTERM);
    expectLine(process, "lost      " + link().string());
    expectEnd(first, 0);
    startService();
    const auto back = process.waitForLine(Stream::kOut, "back      the device is there again");
    ASSERT_TRUE(back) << process.output(Stream::kOut);
    // Lines begin with their time.
    EXPECT_TRUE(process.waitForLine(Stream::kOut, [&](const std::string& line) {
        return line > *back && line.find("received  test.set-mode: mode=1 (on)") != std::string::npos;
    })) << process.output(Stream::kOut);
    interrupt(process);
}

TEST_F(StationMonitorTest, PortIsItsOwn)
{
    PtyPeer unit;
    auto& process = monitor({"--port", unit.path()});
    unit.write({0x2A, 0xA2, 0x00, 0x03, 0x86, 0x11, 0x05, 0x00, 0xFF, 0x61});
    expectLine(process, "received  ");

    const auto second = run({ENGINEERING_STATION, "monitor", "--port", unit.path()});

    EXPECT_EQ(second.status, 10);
    // Where the tests are emulated, the kernel knows the emulator only.
    EXPECT_THAT(second.err, testing::ContainsRegex("in use by (engineering-station|qemu-[a-z0-9]+), process " +
                                                   std::to_string(process.pid()) + "\n"));
    EXPECT_THAT(linesOf(second.err), SizeIs(1));
    interrupt(process);
}

TEST_F(StationMonitorTest, KilledMonitorLeavesACaptureThatCanBeRead)
{
    PtyPeer unit;
    auto& process = monitor({"--port", unit.path(), "--pcapng", capture()});
    unit.write({0x2A, 0xA2, 0x00, 0x03, 0x86, 0x11, 0x05, 0x00, 0xFF, 0x61});
    expectLine(process, "received  ");
    process.signal(SIGKILL);
    EXPECT_EQ(process.wait(), 128 + SIGKILL);

    const auto outcome = run({"tshark", "-r", capture(), "-T", "fields", "-e", "frame.len", "-e", "frame.comment"});

    EXPECT_THAT(outcome.out, HasSubstr("10\t"));
    EXPECT_THAT(linesOf(outcome.out), SizeIs(1));
}

TEST_F(StationMonitorTest, DurationEndsIt)
{
    PtyPeer unit;
    EXPECT_EQ(run({ENGINEERING_STATION, "monitor", "--port", unit.path(), "--duration", "0.05"}).status, 0);
}

TEST_F(StationMonitorTest, CaptureReplacesAFileOfItsName)
{
    PtyPeer unit;
    std::ofstream(capture()) << "an older capture";

    expectEnd(monitor({"--port", unit.path(), "--pcapng", capture(), "--duration", "0.01"}), 0);

    std::ifstream file(capture());
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    EXPECT_THAT(content, testing::StartsWith("\x0A\x0D\x0D\x0A"));
    EXPECT_THAT(content, testing::Not(HasSubstr("older")));
}

TEST_F(StationMonitorTest, CaptureThatCannotBeBegunIsRefused)
{
    PtyPeer unit;
    for (const std::string text : {"/dev/full: cannot be written: No space left on device",
                                   "/no/such/file: cannot be written: No such file or directory"}) {
        const auto path = text.substr(0, text.find(':'));
        auto& process = monitor({"--port", unit.path(), "--pcapng", path});

        expectEnd(process, 7);
        EXPECT_THAT(linesOf(process.output(Stream::kErr)), ElementsAre(HasSubstr(text)));
    }
}

TEST_F(StationMonitorTest, ReplaysTheCapturesOfOtherTools)
{
    const auto outcome = run({ENGINEERING_STATION, "monitor", "--replay",
                              SOURCE_FOLDER "/station/trace/captures/saleae-logic2-iso.csv", "--json"});

    EXPECT_EQ(outcome.status, 0) << outcome.err;
    const auto lines = linesOf(outcome.out);
    ASSERT_THAT(lines, SizeIs(4));
    EXPECT_EQ(json::parse(lines[0])["direction"], "sent");
    EXPECT_EQ(json::parse(lines[3])["time"], "2026-11-21T12:00:00.109546Z");
}

struct Refused {
    const char* name;
    std::vector<std::string> arguments;
    const char* message;
};

class MonitorRefuses : public StationMonitorTest, public testing::WithParamInterface<Refused>
{
};

TEST_P(MonitorRefuses, InOneLineWithStatusTwo)
{
    std::ofstream(directory() / "text") << "the unit is silent";
    std::vector<std::string> all{ENGINEERING_STATION, "monitor"};
    for (const std::string& argument : GetParam().arguments) {
        all.push_back(argument == "TEXT" ? (directory() / "text").string() : argument);
    }

    const auto outcome = run(all);

    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(linesOf(outcome.err), ElementsAre(HasSubstr(GetParam().message)));
}

INSTANTIATE_TEST_SUITE_P(
    StationMonitor, MonitorRefuses,
    testing::Values(Refused{"FilterThatIsNone", {"--filter", "tunre"}, "did you mean 'tuner'?"},
                    Refused{"CaptureThatIsNone", {"--replay", "TEXT"}, ": expected a capture (pcapng, "},
                    Refused{"FormatWithoutReplay", {"--format", "xxd"}, "--replay"},
                    Refused{"CaptureThatIsNotThere", {"--replay", "/no/such/file"}, "/no/such/file"},
                    Refused{"ReplayOfAPort", {"--replay", "TEXT", "--port", "/dev/null"}, "--replay"}),
    [](const auto& row) { return row.param.name; });

TEST_F(StationMonitorTest, PortsListTheBenchAndWhoUsesIt)
{
    startService();
    const auto listed = [&] {
        const json all = json::parse(run({ENGINEERING_STATION, "ports", "--json"}).out);
        for (const json& port : all["ports"]) {
            if (port["kind"] == "bench") {
                return port;
            }
        }
        return json();
    };
    EXPECT_EQ(listed()["path"], link().string());
    EXPECT_EQ(listed()["busy"], false);

    auto& process = monitor({"--enter-test-mode"});
    expectLine(process, "received  test.set-mode");

    EXPECT_EQ(listed()["busy"], true);
    EXPECT_THAT(listed()["user"].get<std::string>(), HasSubstr(std::to_string(process.pid())));
    interrupt(process);
}

}  // namespace
}  // namespace tests
