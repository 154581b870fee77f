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

TEST_F(StationMonitorTest, CaptureGoesIntoAPipeFrameByFrame)
{
    PtyPeer unit;
    auto& pipe = start({"sh", "-c",
                        shellWords(ENGINEERING_STATION) + " monitor --port " + unit.path() +
                            " --pcapng - | tshark -X lua_script:" WIRESHARK_DISSECTOR
                            " -l -i - -c 2 -T fields -e engineering.key; exit 0"});
    // The next frame goes out when the first has come through.
    unit.write({0x2A, 0xA2, 0x00, 0x03, 0x86, 0x11, 0x05, 0x00, 0xFF, 0x61});
    EXPECT_TRUE(pipe.waitForLine(Stream::kOut, "keys.pressed")) << pipe.output(Stream::kErr);
    unit.write({0x2A, 0xA2, 0x00, 0x04, 0x82, 0x01, 0x24, 0xFE, 0xFE, 0x57});

    expectEnd(pipe, 0);
    EXPECT_THAT(linesOf(pipe.output(Stream::kOut)), ElementsAre("keys.pressed", "tuner.frequency"));
}

TEST_F(StationMonitorTest, ClosedPipeEndsTheCaptureWithoutAWord)
{
    PtyPeer unit;
    // No frame comes: the tool notices by itself.
    auto& pipe = start({"sh", "-c",
                        "{ " + shellWords(ENGINEERING_STATION) + " monitor --port " + unit.path() +
                            " --pcapng -; echo status $? >&2; } | head -c 4 | od -An -tx1"});

    expectEnd(pipe, 0);
    EXPECT_THAT(linesOf(pipe.output(Stream::kOut)), ElementsAre(" 0a 0d 0d 0a"));
    EXPECT_THAT(linesOf(pipe.output(Stream::kErr)), ElementsAre("status 1"));
}

TEST_F(StationMonitorTest, FullDiskBehindStandardOutputIsOneLine)
{
    PtyPeer unit;
    const auto outcome = run(
        {"sh", "-c", shellWords(ENGINEERING_STATION) + " monitor --port " + unit.path() + " --pcapng - >/dev/full"});

    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(linesOf(outcome.err),
                ElementsAre("engineering-station: standard output: cannot be written: No space left on device"));
}

TEST_F(StationMonitorTest, ChangesAreALineForEachNewValue)
{
    PtyPeer unit;
    auto& lines = monitor({"--port", unit.path(), "--changes", "--duration", "20"});
    unit.write({0x2A, 0xA2, 0x00, 0x04, 0x82, 0x01, 0x24, 0xFE, 0xFE, 0x57});
    expectLine(lines, "received  tuner.frequency: frequency=9470 (94.7 MHz on FM)  | 82 01 [24 FE]  1 × 0.0/s");
    unit.write({0x2A, 0xA2, 0x00, 0x04, 0x82, 0x01, 0x24, 0xFE, 0xFE, 0x57});
    unit.write({0x2A, 0xA2, 0x00, 0x04, 0x82, 0x01, 0x24, 0xFD, 0xFE, 0x58});
    expectLine(lines, "frequency=9469 (94.69 MHz on FM)  | 82 01 [24 <FD>]  3 × ");
    interrupt(lines);
    EXPECT_THAT(linesOf(lines.output(Stream::kOut)), SizeIs(2));

    auto& objects = monitor({"--port", unit.path(), "--changes", "--json", "--duration", "20"});
    unit.write({0x2A, 0xA2, 0x00, 0x03, 0x86, 0x11, 0x05, 0x00, 0xFF, 0x61});
    expectLine(objects, R"("changed":[],"count":1,"per_second":0.0)");
    unit.write({0x2A, 0xA2, 0x00, 0x03, 0x86, 0x11, 0x06, 0x00, 0xFF, 0x60});
    const auto line = objects.waitForLine(Stream::kOut, R"("count":2)");
    ASSERT_TRUE(line) << objects.output(Stream::kOut);
    interrupt(objects);
    const json object = json::parse(*line);
    EXPECT_EQ(object["key"], "keys.pressed");
    EXPECT_EQ(object["changed"], json::array({0}));
    EXPECT_GT(object["per_second"], 0);
}

/// A plan that waits for an event of the unit, and taps of its line.
class RunTapProgram : public StationMonitorTest
{
protected:
    RunTapProgram()
    {
        std::ofstream(directory() / "plan.toml") << R"(schema = 1
name = "waits"
title = "Waits"

[[setup]]
name = "Mode"
steps = [{ send = "test.set-mode", with = { mode = "on" } }]

[[main]]
name = "Wait"
steps = [{ wait = "keys.reset-under-way", timeout = 20 }]

[[teardown]]
name = "Mode off"
steps = [{ send = "test.set-mode", with = { mode = "off" } }]
)";
    }

    ChildProcess& startRun()
    {
        startService();
        auto& plan = start({ENGINEERING_STATION, "plan", "run", directory() / "plan.toml", "--results", results()});
        EXPECT_TRUE(plan.waitForLine(Stream::kOut, "waiting for ")) << plan.output(Stream::kErr);
        return plan;
    }

    ChildProcess& tap(std::vector<std::string> arguments = {})
    {
        arguments.insert(arguments.begin(), {"--run", "latest", "--results", results()});
        return monitor(arguments);
    }

    void provoke() { run({HEADUNITCTL, "event", "OnU6PersistFactoryResetMode"}); }

    std::string results() const { return directory() / "results"; }
};

TEST_F(RunTapProgram, SeveralTapsShowTheLineOfARunUntilItsEnd)
{
    auto& plan = startRun();
    auto& lines = tap({"--pcapng", capture()});
    auto& objects = tap({"--json"});
    for (ChildProcess* each : {&lines, &objects}) {
        EXPECT_TRUE(each->waitForLine(Stream::kOut, "test.set-mode")) << each->output(Stream::kErr);
    }

    provoke();
    expectLine(lines, "received  keys.reset-under-way");
    expectEnd(plan, 0);
    expectEnd(lines, 0);
    expectEnd(objects, 0);

    const auto all = run({ENGINEERING_STATION, "monitor", "--replay", capture()});
    EXPECT_EQ(all.out, lines.output(Stream::kOut)) << "the capture holds what the tap has shown";
    EXPECT_THAT(linesOf(objects.output(Stream::kOut)), SizeIs(linesOf(all.out).size()));
    EXPECT_THAT(lines.output(Stream::kErr) + objects.output(Stream::kErr), IsEmpty());
}

TEST_F(RunTapProgram, KilledRunEndsTheTapInOneLine)
{
    auto& plan = startRun();
    auto& lines = tap();
    expectLine(lines, "received  test.set-mode: mode=1 (on)");

    plan.signal(SIGKILL);
    expectEnd(plan, 128 + SIGKILL);

    expectEnd(lines, 1);
    EXPECT_THAT(linesOf(lines.output(Stream::kErr)),
                ElementsAre(HasSubstr(".running: the run did not end: the station was stopped or lost its power")));
}

TEST_F(RunTapProgram, ChangesAreDrawnInPlaceOnATerminal)
{
    auto& plan = startRun();
    provoke();
    expectEnd(plan, 0);
    auto terminal = environment();
    terminal["TERM"] = "xterm";
    terminal["NO_COLOR"] = std::nullopt;

    const auto [text, status] = runOnTerminal(
        {ENGINEERING_STATION, "monitor", "--run", "latest", "--results", results(), "--changes"}, terminal, "");

    EXPECT_EQ(status, 0);
    const std::string last = text.substr(text.rfind("\x1b[1A\r\x1b[2K"));
    EXPECT_THAT(last, HasSubstr("0 corrupt\r\nRATE/s   COUNT  FRAME\r\n"));
    EXPECT_THAT(last, HasSubstr("→ 0F 00 [\x1b[7m00\x1b[27m]  test.set-mode: mode=0 (off)"));
    EXPECT_THAT(last, HasSubstr("← 86 13 ["));
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
                    Refused{"ReplayOfAPort", {"--replay", "TEXT", "--port", "/dev/null"}, "--replay"},
                    Refused{"RunThatIsNotThere", {"--run", "x", "--results", "/no/such"}, "got 'x'"},
                    Refused{
                        "RunThatIsNoRecord", {"--run", "TEXT"}, "expected the record of a run that can be followed"},
                    Refused{"RunOfAPort", {"--run", "latest", "--port", "/dev/null"}, "--run"},
                    Refused{"ResultsWithoutARun", {"--results", "/tmp"}, "--results"},
                    Refused{"BytesOfChanges", {"--changes", "--hex"}, "--changes"},
                    Refused{"TextInACapture", {"--pcapng", "-", "--filter", "tuner"}, "expected no --json, --hex"}),
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
