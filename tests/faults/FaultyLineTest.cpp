// The station tool over a line that fails on purpose, engineering-line.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <thread>
#include <utility>

#include "line/Lane.h"
#include "station/trace/PcapngReader.h"
#include "tests/faults/Soak.h"
#include "tests/integration/BenchTest.h"
#include "tests/support/PtyPeer.h"
#include "tests/support/WireVectors.h"

namespace tests {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using std::chrono::steady_clock;
using testing::AllOf;
using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using wire::Bytes;
using Stream = ChildProcess::Stream;

class FaultyLineTest : public BenchTest
{
protected:
    std::string line() const { return directory() / "line"; }

    /// Starts a line from `port` with further `arguments`, and waits until it is ready.
    ChildProcess& startLine(const std::vector<std::string>& arguments, const std::string& port,
                            const std::string& seed = "14")
    {
        std::vector<std::string> all{ENGINEERING_LINE, "--from", port, "--to", line(), "--seed", seed};
        all.insert(all.end(), arguments.begin(), arguments.end());
        ChildProcess& process = start(all);
        if (!process.waitForLine(Stream::kErr, "ready line=" + line())) {
            throw std::runtime_error("the line did not get ready: " + process.output(Stream::kErr));
        }
        return process;
    }

    ChildProcess& startLine(const std::vector<std::string>& arguments = {}) { return startLine(arguments, link()); }

    Outcome station(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), ENGINEERING_STATION);
        arguments.insert(arguments.end(), {"--port", line()});
        return run(arguments);
    }

    Outcome send(const std::string& command = "test.mode", const std::string& timeout = "5")
    {
        return station({"send", command, "--timeout", timeout});
    }

    Outcome control(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {HEADUNITCTL, "line"});
        return run(arguments);
    }

    json counts() { return json::parse(control({"counts"}).out); }

    /// Waits until the line has hung up.
    void awaitHangUp()
    {
        const auto deadline = steady_clock::now() + kGenerous;
        while (counts()["hang_ups"] == 0 && steady_clock::now() < deadline) {
        }
    }

    std::string file(const std::string& name, const std::string& content) const
    {
        std::ofstream(directory() / name) << content;
        return directory() / name;
    }

    static std::string contentOf(const fs::path& path)
    {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
};

struct Fault {
    const char* name;
    std::vector<std::string> set;
    /// Of `send`, `identity write` and `plan run`.
    testing::Matcher<int> sent;
    testing::Matcher<int> written;
    testing::Matcher<int> ran;
};

class EveryVerb : public FaultyLineTest, public testing::WithParamInterface<Fault>
{
protected:
    /// @returns the status of a verb that has to end within its limit.
    int statusOf(std::vector<std::string> arguments)
    {
        const auto began = steady_clock::now();
        const auto outcome = station(std::move(arguments));
        EXPECT_LT(steady_clock::now() - began, kGenerous);
        if (outcome.status != 0) {
            EXPECT_THAT(linesOf(outcome.err + outcome.out), Contains(testing::Not(IsEmpty())));
        }
        return outcome.status;
    }
};

TEST_P(EveryVerb, EndsWithTheRightVerdictInTime)
{
    startService();
    startLine();
    ASSERT_EQ(station({"send", "test.set-mode", "mode=on"}).status, 0);
    const auto plan = file("plan.toml", R"(
schema = 1
name = "short"
title = "Short"
[defaults]
timeout = 1
[[main]]
name = "Unit"
steps = [{ send = "test.mode", expect = { mode = "on" } }, { send = "info.project-name" }]
)");
    std::vector<std::string> set{"set"};
    set.insert(set.end(), GetParam().set.begin(), GetParam().set.end());

    ASSERT_EQ(control(set).status, 0);

    EXPECT_THAT(statusOf({"send", "test.mode"}), GetParam().sent);
    EXPECT_THAT(statusOf({"identity", "write", "--set", "factory-serial=SN1", "--timeout", "1"}), GetParam().written);
    EXPECT_THAT(statusOf({"plan", "run", plan, "--no-record"}), GetParam().ran);
}

INSTANTIATE_TEST_SUITE_P(Faults, EveryVerb,
                         testing::Values(Fault{"Delay", {"delay=100ms", "jitter=50ms"}, 0, 0, 0},
                                         Fault{"TooLongDelay", {"delay=3"}, 3, 3, 3},
                                         Fault{"LostCommands", {"to_unit.drop=100%"}, 3, 3, 3},
                                         Fault{"LostReplies", {"to_station.drop=1"}, 3, 3, 3},
                                         Fault{"CorruptCommands", {"to_unit.corrupt=1"}, 3, 3, 3},
                                         // A wrong checksum is an error, a damaged header no reply; the plan meets the
                                         // first with this seed.
                                         Fault{"CorruptReplies", {"to_station.corrupt=1"}, 3, 3, 6},
                                         Fault{"SecondReplies", {"to_station.duplicate=1"}, 0, 0, 6},
                                         Fault{"SplitFrames", {"split=1"}, 0, 0, 0},
                                         Fault{"SlowLine", {"baud=2400"}, 0, 0, 0},
                                         Fault{"Noise", {"noise=20"}, 0, 0, 0}),
                         [](const auto& row) { return row.param.name; });

TEST_F(FaultyLineTest, HangUpDuringACommandIsRepairedAndInAPlanIsAnError)
{
    startService();
    startLine({"--set", "away=300ms"});
    const auto plan = file("plan.toml", R"(
schema = 1
name = "short"
title = "Short"
[[main]]
name = "Unit"
steps = [{ send = "test.mode" }]
)");

    for (const bool runsPlan : {false, true}) {
        ASSERT_EQ(control({"counts", "--clear"}).status, 0);
        ASSERT_EQ(control({"set", "to_unit.hang_up=100%"}).status, 0);
        ChildProcess& tool = runsPlan
                                 ? start({ENGINEERING_STATION, "plan", "run", plan, "--no-record", "--port", line()})
                                 : start({ENGINEERING_STATION, "send", "test.mode", "--port", line()});
        awaitHangUp();
        ASSERT_EQ(control({"clear"}).status, 0);

        // An ended process is not asked to end at the end of the test.
        expectEnd(tool, runsPlan ? 6 : 0);
        EXPECT_THAT(tool.output(Stream::kOut), HasSubstr(runsPlan ? "the line was lost and came back" : "8F FF"));
    }
}

TEST_F(FaultyLineTest, LinkGoesAndReturnsWithThePort)
{
    auto& service = startService();
    auto& process = startLine();
    ASSERT_EQ(send().status, 0);

    service.signal(SIGTERM);
    ASSERT_TRUE(process.waitForLine(Stream::kErr, "waiting for it to return"));
    EXPECT_EQ(send().status, 10);
    startService();
    ASSERT_TRUE(process.waitForLine(Stream::kErr, link().string() + ": back"));

    EXPECT_EQ(send().status, 0);
}

TEST_F(FaultyLineTest, ScriptChangesTheFaultsInTime)
{
    startService();
    const auto script = file("faults.toml", R"(
schema = 1
seed = 5
to_unit = { drop = "100%" }

[[at]]
time = "1500ms"
drop = 0
hang_up_for = "100ms"
)");
    std::vector<std::string> all{ENGINEERING_LINE, "--from", link(), "--to", line(), "--faults", script};
    auto& process = start(all);
    ASSERT_TRUE(process.waitForLine(Stream::kErr, "ready line=" + line() + " seed=5"));

    EXPECT_EQ(send("test.mode", "0.05").status, 3);
    awaitHangUp();
    const auto deadline = steady_clock::now() + kGenerous;
    while (!fs::exists(line()) && steady_clock::now() < deadline) {
    }

    EXPECT_EQ(send().status, 0);
    EXPECT_EQ(json::parse(control({"faults"}).out)["to_unit"]["drop"], 0);
    EXPECT_EQ(counts()["hang_ups"], 1);
}

TEST_F(FaultyLineTest, CountsAndCaptureShowWhatItDid)
{
    startService();
    const std::string capture = directory() / "line.pcapng";
    auto& process = startLine({"--pcapng", capture});
    ASSERT_EQ(station({"send", "test.set-mode", "mode=on"}).status, 0);
    ASSERT_EQ(control({"set", "to_station.drop=1"}).status, 0);
    EXPECT_EQ(send("test.mode", "1").status, 3);
    auto now = counts();
    EXPECT_EQ(now["to_unit"]["dropped"], 0);
    EXPECT_GE(now["to_station"]["dropped"], 1);

    ASSERT_EQ(station({"send", "identity.write-password-number", "value=4711"}).status, 0);
    const auto frames = now["to_unit"]["frames"];
    const auto deadline = steady_clock::now() + kGenerous;
    while (now["to_unit"]["frames"] == frames && steady_clock::now() < deadline) {
        now = counts();
    }
    process.signal(SIGTERM);
    expectEnd(process, 0);

    EXPECT_EQ(json::parse(process.output(Stream::kOut)), now);
    std::ifstream in(capture, std::ios::binary);
    station::pcapng::Reader reader(in, capture);
    std::vector<std::string> comments;
    while (const auto event = reader.next()) {
        comments.push_back(event->text);
    }
    EXPECT_THAT(comments, Contains("dropped"));
    EXPECT_THAT(contentOf(capture), AllOf(HasSubstr("****"), testing::Not(HasSubstr("4711"))));
}

TEST_F(FaultyLineTest, EndsThatDoNotReadCostNoMemoryAndNoByte)
{
    PtyPeer unit;
    startLine({}, unit.path());
    fcntl(unit.descriptor(), F_SETFL, O_NONBLOCK);
    Bytes written;
    Bytes chunk(1000);
    std::uint8_t next = 0;

    // Any bytes, until neither the line nor the terminals take more: a full line no longer counts.
    const auto deadline = steady_clock::now() + kGenerous;
    std::size_t taken = 0;
    std::size_t before = 0;
    do {
        for (ssize_t count = 1; count > 0;) {
            std::ranges::generate(chunk, [&next] { return next = static_cast<std::uint8_t>(next * 5 + 1); });
            count = ::write(unit.descriptor(), chunk.data(), chunk.size());
            if (count > 0) {
                written.insert(written.end(), chunk.begin(), chunk.begin() + count);
                next = written.back();
            }
            ASSERT_LT(written.size(), 200'000U);
        }
        before = std::exchange(taken, counts()["to_station"]["bytes"].get<std::size_t>());
    } while ((taken < line::Lane::kMostWaiting || taken > before) && steady_clock::now() < deadline);

    EXPECT_GE(taken, line::Lane::kMostWaiting);
    EXPECT_EQ(taken, before);
    RawLine station(line());
    EXPECT_EQ(station.read(written.size()), written);
    station.write({1, 2, 3});
    EXPECT_EQ(unit.read(3), (Bytes{1, 2, 3}));
}

TEST_F(FaultyLineTest, NoNoiseIsKeptForAnEndThatIsAwayAndTheUnitsBytesAreCountedAsLost)
{
    PtyPeer unit;
    startLine({"--set", "to_station.noise=1000"}, unit.path());
    ASSERT_EQ(control({"hang-up", "1h"}).status, 0);
    const auto before = counts()["to_station"];

    unit.write({1, 2, 3});
    auto now = before;
    const auto deadline = steady_clock::now() + kGenerous;
    while (now["lost_bytes"] == before["lost_bytes"] && steady_clock::now() < deadline) {
        now = counts()["to_station"];
    }

    EXPECT_EQ(now["lost_bytes"], before["lost_bytes"].get<int>() + 3);
    EXPECT_EQ(now["noise"], before["noise"]);
    ASSERT_EQ(control({"hang-up", "0"}).status, 0);
    EXPECT_THAT(RawLine(line()).read(1), testing::SizeIs(1));
}

TEST_F(FaultyLineTest, CallThatClearsTheCountsReturnsThem)
{
    PtyPeer unit;
    startLine({}, unit.path());
    unit.write({1, 2, 3});
    const auto deadline = steady_clock::now() + kGenerous;
    while (counts()["to_station"]["bytes"] < 3 && steady_clock::now() < deadline) {
    }

    const auto outcome = run({"gdbus", "call", "--session", "--dest", "com.zent.linux.line", "--object-path",
                              "/com/zent/linux/line", "--method", "com.zent.linux.line.ClearCounts"});
    unit.write({4});
    while (counts()["to_station"]["bytes"] < 1 && steady_clock::now() < deadline) {
    }

    EXPECT_THAT(outcome.out, HasSubstr(R"("bytes":3)"));
    EXPECT_EQ(json::parse(control({"counts", "--clear"}).out)["to_station"]["bytes"], 1);
    EXPECT_EQ(counts()["to_station"]["bytes"], 0);
}

TEST_F(FaultyLineTest, WorksWithoutABusAndWhereTheNameIsTaken)
{
    startService();
    startLine();
    auto& second = start({ENGINEERING_LINE, "--from", line(), "--to", directory() / "line2"});
    ASSERT_TRUE(second.waitForLine(Stream::kErr, "ready line="));
    EXPECT_THAT(second.output(Stream::kErr), HasSubstr("com.zent.linux.line is taken by another process\n"));
    EXPECT_EQ(run({ENGINEERING_STATION, "send", "test.mode", "--port", directory() / "line2"}).status, 0);

    hideBus();
    auto& third = start({ENGINEERING_LINE, "--from", directory() / "line2", "--to", directory() / "line3"});
    ASSERT_TRUE(third.waitForLine(Stream::kErr, "ready line="));
    EXPECT_THAT(linesOf(third.output(Stream::kErr)),
                ElementsAre(StartsWith("engineering-line: no session bus: "), StartsWith("ready line=")));
    EXPECT_EQ(run({ENGINEERING_STATION, "send", "test.mode", "--port", directory() / "line3"}).status, 0);
}

TEST_F(FaultyLineTest, WrongUseIsOneLineForEachMistake)
{
    const auto script = file("faults.toml", "schema = 1\ndrop = 2\n[[at]]\ndorp = 1\n");
    file("occupied", "");
    const std::string port = PtyPeer().path();
    struct Row {
        std::vector<std::string> arguments;
        int status;
        testing::Matcher<std::vector<std::string>> lines;
    };
    const PtyPeer unit;
    const std::vector<Row> rows{
        {{"--from", unit.path(), "--to", line(), "--set", "drop"},
         2,
         ElementsAre(HasSubstr("--set: expected KEY=VALUE"))},
        {{"--from", unit.path(), "--to", line(), "--set", "dorp=1"}, 2, ElementsAre(HasSubstr("did you mean 'drop'?"))},
        {{"--from", unit.path(), "--to", line(), "--faults", script},
         2,
         ElementsAre(HasSubstr("engineering-line: " + script + ":2:8: 'drop': expected a rate"),
                     HasSubstr("faults.toml:3:1: 'time'"), HasSubstr("faults.toml:4:1: "))},
        {{"--from", unit.path(), "--to", line(), "--faults", "/no/such/file"},
         2,
         ElementsAre(HasSubstr("no such file"))},
        {{"--from", unit.path(), "--to", line(), "--faults", "/dev/zero"},
         2,
         ElementsAre(HasSubstr("/dev/zero: expected a regular file, got a device"))},
        {{"--from", "/dev/no-such-line", "--to", line()}, 1, ElementsAre(HasSubstr("/dev/no-such-line: cannot open"))},
        {{"--from", unit.path(), "--to", directory() / "occupied"},
         1,
         ElementsAre(HasSubstr("occupied: expected a symbolic link or nothing"))},
        {{"--from", unit.path(), "--to", line(), "--pcapng", "/no/such/file"},
         1,
         ElementsAre(HasSubstr("/no/such/file"))},
        {{"--from", unit.path() + ",3", "--to", line()}, 2, ElementsAre(HasSubstr("expected a baud rate"))}};

    for (const Row& row : rows) {
        std::vector<std::string> all{ENGINEERING_LINE};
        all.insert(all.end(), row.arguments.begin(), row.arguments.end());
        const auto outcome = run(all);
        EXPECT_EQ(outcome.status, row.status) << outcome.err;
        EXPECT_THAT(linesOf(outcome.err), row.lines);
        EXPECT_FALSE(fs::exists(line()));
    }
}

TEST_F(FaultyLineTest, ControlRefusesWhatIsWrongAndChangesNothing)
{
    EXPECT_THAT(control({"faults"}).err, HasSubstr("no line is on the session bus (com.zent.linux.line)"));
    const PtyPeer unit;
    startLine({"--set", "drop=0.5"}, unit.path());
    const std::string before = control({"faults"}).out;

    for (const std::vector<std::string>& words : {std::vector<std::string>{"set", "corrupt=1", "drop=2"},
                                                  {"set", "dorp=1"},
                                                  {"set", "drop"},
                                                  {"hang-up", "2h"},
                                                  {"hang-up", "soon"},
                                                  {"hang-up", "-1"}}) {
        const auto outcome = control(words);
        EXPECT_EQ(outcome.status, 2) << words.back();
        EXPECT_THAT(linesOf(outcome.err), ElementsAre(StartsWith("headunitctl: "))) << words.back();
    }
    for (const char* text : {"", "{", "[]", "5", R"({"drop": null})", R"({"to_unit": {"to_unit": {"drop": 1}}})"}) {
        const auto outcome = run({"gdbus", "call", "--session", "--dest", "com.zent.linux.line", "--object-path",
                                  "/com/zent/linux/line", "--method", "com.zent.linux.line.SetFaults", "--", text});
        EXPECT_THAT(outcome.err, HasSubstr("Error.InvalidValue")) << text;
    }

    EXPECT_EQ(control({"faults"}).out, before);
    EXPECT_EQ(json::parse(before)["to_unit"]["drop"], 0.5);
}

struct Condition {
    const char* name;
    const char* fault;
    const char* count;
    /// With this one, one of the first ten frames of each direction meets the fault: the shortest plan has more.
    const char* seed;
};

/// The shipped plans, but for the one that needs an operator at a unit.
class ShippedPlan : public FaultyLineTest, public testing::WithParamInterface<std::tuple<const char*, Condition>>
{
};

TEST_P(ShippedPlan, Passes)
{
    const auto& [plan, condition] = GetParam();
    startService();
    auto& hmi = start({ENGINEERING_HMI});
    ASSERT_TRUE(hmi.waitForLine(Stream::kErr, "ready"));
    startLine({"--set", condition.fault}, link(), condition.seed);
    std::vector<std::string> arguments{
        ENGINEERING_STATION, "plan",   "run", std::string(SOURCE_FOLDER "/share/plans/") + plan + ".toml",
        "--no-record",       "--port", line()};
    if (plan == std::string("reception")) {
        arguments.insert(arguments.end(),
                         {"--answers", file("answers.toml", "cell = \"CELL-07\"\nantenna = \"cable\"\n")});
    } else if (plan == std::string("provision")) {
        arguments.insert(arguments.end(), {"--answers", file("answers.toml", R"(
hu-serial = "HU2026-000417"
factory-serial = "SN000417"
production-date = "20261121"
drawing-code = "D-42"
password-number = "4711"
bluetooth-address = "001A7DDA7113"
carplay-mac = "001122334455"
)")});
    }

    auto& process = start(arguments);

    EXPECT_EQ(process.wait(5 * kGenerous), 0) << process.output(Stream::kOut) << process.output(Stream::kErr);
    const auto done = counts();
    EXPECT_GT(done["to_unit"][condition.count], 0) << done;
    EXPECT_GT(done["to_station"][condition.count], 0) << done;
}

INSTANTIATE_TEST_SUITE_P(Faults, ShippedPlan,
                         testing::Combine(testing::Values("smoke", "end-of-line", "provision", "reception"),
                                          testing::Values(Condition{"LosingOnePercent", "drop=1%", "dropped", "1828"},
                                                          Condition{"DamagingOnePercent", "corrupt=1%", "corrupted",
                                                                    "2040"},
                                                          Condition{"DelayedBy200Ms", "delay=200ms", "delayed", "1"})),
                         [](const auto& row) {
                             std::string name = std::string(std::get<0>(row.param)) + std::get<1>(row.param).name;
                             std::erase(name, '-');
                             return name;
                         });

/// A service stands for all units of a place: without records it is another unit. Several places work at once.
class ProvisioningTest : public FaultyLineTest
{
protected:
    static constexpr std::size_t kPlaces = 6;
    static constexpr std::size_t kSeed = 14;

    struct Place {
        fs::path folder;
        ChildProcess* line = nullptr;
        std::vector<std::pair<std::string, std::string>> found;  // value and unit
        std::size_t whole = 0;                                   // units

        fs::path records() const { return folder / "root/perm_data/data/engineering"; }
    };

    void open(Place& place, std::size_t number)
    {
        place.folder = directory() / ("place" + std::to_string(number));
        fs::create_directory(place.folder);
        // Otherwise each record waits until the whole machine has written its files.
        const auto state = file("headunit.json", R"({"system": {"failing_commands": ["sync"]}})");
        auto& service = start({ENGINEERING_SERVICE, "--root", place.folder / "root", "--uart",
                               "pty:" + (place.folder / "unit").string(), "--headunit", state});
        ASSERT_TRUE(service.waitForLine(Stream::kErr, "ready uart="));
        std::vector<std::string> arguments{ENGINEERING_LINE,      "--from", place.folder / "unit",         "--to",
                                           place.folder / "line", "--seed", std::to_string(kSeed + number)};
        for (const char* fault : {"drop=2%", "corrupt=2%", "duplicate=3%", "split=3%", "noise=2", "jitter=2ms",
                                  "hang_up=0.3%", "away=50ms"}) {
            arguments.insert(arguments.end(), {"--set", fault});
        }
        place.line = &start(arguments);
        ASSERT_TRUE(place.line->waitForLine(Stream::kErr, "ready line="));
    }

    /// Provisions a unit, with up to three attempts, and takes its records away.
    void provision(Place& place, const std::string& unit)
    {
        int status = -1;
        for (int attempt = 0; attempt < 3 && status != 0; ++attempt) {
            const auto outcome =
                run({ENGINEERING_STATION, "identity", "write", "--range", "factory-serial=SN{000000..009999}",
                     "--mac-block", "carplay-mac=001A7D000000/24", "--unit", unit, "--timeout", "0.1", "--reconnect",
                     "1", "--port", place.folder / "line"});
            status = outcome.status;
            if (status == 1) {
                EXPECT_THAT(outcome.err, HasSubstr(" and may have its values, but the unit on the line holds none"));
            } else {
                EXPECT_THAT(status, AnyOf(0, 3, 10, 11, 12)) << outcome.err;
            }
        }
        place.whole += status == 0 ? 1 : 0;
        for (const char* record : {"factory_serial_num", "cp_mac_address"}) {
            std::string value = contentOf(place.records() / record);
            std::erase(value, ':');
            if (!value.empty()) {
                place.found.emplace_back(value, unit);
            }
        }
        fs::rename(place.records(), place.folder / unit);
        fs::create_directory(place.records());
    }
};

TEST_F(ProvisioningTest, NoValueIsGivenTwiceWhateverTheLineDoes)
{
    const std::size_t units = lengthOf(30, 1000);
    std::array<Place, kPlaces> places;
    for (std::size_t i = 0; i < kPlaces; ++i) {
        ASSERT_NO_FATAL_FAILURE(open(places[i], i));
    }

    std::vector<std::thread> operators;
    for (std::size_t i = 0; i < kPlaces; ++i) {
        operators.emplace_back([this, i, units, &place = places[i]] {
            for (std::size_t number = i; number < units; number += kPlaces) {
                provision(place, "U" + std::to_string(number));
            }
        });
    }
    for (auto& each : operators) {
        each.join();
    }

    std::map<std::string, std::string> holders;  // by value, from the units' records
    std::size_t whole = 0;
    for (std::size_t i = 0; i < kPlaces; ++i) {
        for (const auto& [value, unit] : places[i].found) {
            const auto [at, isNew] = holders.emplace(value, unit);
            EXPECT_TRUE(isNew) << value << " is in " << at->second << " and in " << unit;
        }
        whole += places[i].whole;
        places[i].line->signal(SIGTERM);
        expectEnd(*places[i].line, 0);
        std::printf("seed %zu: %s", kSeed + i, places[i].line->output(Stream::kOut).c_str());
    }
    showFigure("units with all values, of " + std::to_string(units), static_cast<double>(whole), "");
    EXPECT_GT(whole, units / 2);
    std::map<std::string, std::string> given;  // by value, from the registry
    for (const std::string& text : linesOf(run({ENGINEERING_STATION, "identity", "registry", "list", "--json"}).out)) {
        const auto value = json::parse(text);
        if (value["type"] == "value") {
            EXPECT_TRUE(given.emplace(value["value"], value["unit"]).second) << text;
        }
    }
    for (const auto& [value, unit] : holders) {
        EXPECT_EQ(given[value], unit) << value;
    }
}

}  // namespace
}  // namespace tests
