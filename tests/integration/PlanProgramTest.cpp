#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "host/Descriptor.h"
#include "tests/integration/BenchTest.h"
#include "tests/support/PtyPeer.h"

namespace tests {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using Json = nlohmann::json;

constexpr const char* kHead = "schema = 1\nname = \"test\"\ntitle = \"Test\"\n";

class PlanProgramTest : public BenchTest
{
protected:
    std::filesystem::path results() const { return directory() / "results"; }

    static std::string shipped(const std::string& name)
    {
        return std::string(SOURCE_FOLDER) + "/share/plans/" + name + ".toml";
    }

    static std::string readText(const std::string& path)
    {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::string write(const std::string& name, const std::string& text)
    {
        const auto path = directory() / name;
        std::ofstream(path) << text;
        return path.string();
    }

    std::vector<std::string> planRun(const std::string& plan, const std::vector<std::string>& arguments = {})
    {
        std::vector<std::string> all{ENGINEERING_STATION, "plan", "run", plan, "--results", results().string()};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return all;
    }

    std::string answersOfAGoodUnit()
    {
        return write("answers.toml",
                     "hu-serial = \"HU7\"\nfactory-serial = \"SN123\"\nproduction-date = \"20261121\"\n"
                     "drawing-code = \"D-42\"\npassword-number = \"1234\"\nbluetooth-address = \"001A7DDA7113\"\n"
                     "carplay-mac = \"001122334455\"\n");
    }

    /// @returns the arguments that the shipped plan needs.
    std::vector<std::string> argumentsOf(const std::string& plan)
    {
        if (plan == "reception") {
            return {"--answers", write("answers.toml", "cell = \"CELL-07\"\nantenna = \"air\"\n")};
        }
        return plan == "provision" ? std::vector<std::string>{"--answers", answersOfAGoodUnit()}
                                   : std::vector<std::string>{};
    }

    /// The service, and the HMI that carries some commands out.
    void startBench(const char* lacks = nullptr)
    {
        std::vector<std::string> arguments;
        if (lacks != nullptr) {
            arguments = {"--headunit", write("headunit.json", lacks)};
        }
        startService(arguments);
        ChildProcess& hmi = start({ENGINEERING_HMI});
        ASSERT_TRUE(hmi.waitForLine(ChildProcess::Stream::kErr, "ready")) << hmi.output(ChildProcess::Stream::kErr);
        // What the plan asks for: the platform starts its modules one after the other.
        ASSERT_TRUE(pollLine({0x2A, 0xA2, 0x00, 0x02, 0x0F, 0x01, 0xFF, 0xEE}, 10,
                             [](const auto& reply) { return reply.size() == 10 && reply[6] == 1; }));
    }

    /// @returns the records, each from the folder of a finished run.
    std::vector<Json> records() const
    {
        std::vector<Json> list;
        for (const auto& entry : std::filesystem::directory_iterator(results())) {
            std::ifstream file(entry.path() / "record.json");
            list.push_back(Json::parse(file, nullptr, false));
        }
        return list;
    }
};

class ShippedPlan : public PlanProgramTest, public testing::WithParamInterface<const char*>
{
};

TEST_P(ShippedPlan, PassesOnTheBench)
{
    startBench();

    const auto outcome = run(planRun(shipped(GetParam()), argumentsOf(GetParam())));

    EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.err;
    EXPECT_THAT(outcome.err, IsEmpty());
    ASSERT_THAT(records(), SizeIs(1));
    EXPECT_EQ(records()[0]["verdict"], "PASS");
}

INSTANTIATE_TEST_SUITE_P(Plan, ShippedPlan, testing::Values("smoke", "end-of-line", "provision", "reception"),
                         [](const auto& row) {
                             return std::string(row.param) == "end-of-line" ? std::string("EndOfLine")
                                                                            : std::string(row.param);
                         });

TEST_F(PlanProgramTest, ProvisioningLeavesARecordAloneThatHoldsSomethingElse)
{
    startBench();
    ASSERT_EQ(run(planRun(shipped("provision"), argumentsOf("provision"))).status, 0);
    const auto others = write("others.toml",
                              "hu-serial = \"HU8\"\nfactory-serial = \"SN123\"\nproduction-date = \"20261121\"\n"
                              "drawing-code = \"D-42\"\npassword-number = \"1234\"\n"
                              "bluetooth-address = \"001A7DDA7113\"\ncarplay-mac = \"001122334455\"\n");

    const auto outcome = run(planRun(shipped("provision"), {"--answers", others}));

    EXPECT_EQ(outcome.status, 1) << outcome.out << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("HU7"));
    EXPECT_THAT(outcome.out, HasSubstr(", unit HU7: "))
        << "the record is the unit's, not that of the wished-for serial";
    std::ifstream record(root() / "perm_data/data/engineering/hu_serial_num");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(record), {}), "HU7");
}

/// A bench whose power the plans can switch.
class PoweredPlan : public PlanProgramTest, public testing::WithParamInterface<const char*>
{
protected:
    PoweredPlan()
    {
        const std::string programs = std::filesystem::path(HEADUNITCTL).parent_path();
        environment()["PATH"] = programs + ":" + getenv("PATH");
    }

    std::vector<std::string> powered(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin() + 1, {"--config", std::string(SOURCE_FOLDER) + "/share/bench.toml"});
        return arguments;
    }
};

TEST_P(PoweredPlan, PassesWithAPowerCycleThatIsNoLossOfTheLine)
{
    startBench();

    const auto outcome = run(powered(planRun(shipped(GetParam()), argumentsOf(GetParam()))));

    EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.err;
    ASSERT_THAT(records(), SizeIs(1));
    EXPECT_EQ(records()[0]["verdict"], "PASS");
    EXPECT_EQ(records()[0]["line"]["losses"], 0);
    EXPECT_THAT(outcome.out, HasSubstr("Switch the unit off and on"));
    EXPECT_THAT(outcome.out, Not(HasSubstr("SKIPPED")));
}

INSTANTIATE_TEST_SUITE_P(Plan, PoweredPlan, testing::Values("end-of-line", "fixture"), [](const auto& row) {
    return std::string(row.param) == "end-of-line" ? std::string("EndOfLine") : std::string(row.param);
});

using PoweredBench = PoweredPlan;

TEST_F(PoweredBench, BluetoothAddressIsWrittenAndVerifiedWithinOnePlan)
{
    startBench();
    const auto answers = write("answers.toml",
                               "hu-serial = \"HU7\"\nfactory-serial = \"SN123\"\nproduction-date = \"20261121\"\n"
                               "drawing-code = \"D-42\"\npassword-number = \"1234\"\n"
                               "bluetooth-address = \"0002F5A1B2C3\"\ncarplay-mac = \"001122334455\"\n");

    const auto outcome = run(powered(planRun(shipped("provision"), {"--answers", answers})));

    EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("Controller uses the address"));
    EXPECT_EQ(run({HEADUNITCTL, "state", "/bluetooth/attributes/3"}).out, "\"00:02:F5:A1:B2:C3\"\n");
}

TEST_F(PlanProgramTest, PlanWithAnInstrumentThatTheStationLacksIsRefusedAndOneItHasIsSound)
{
    const auto plan =
        write("plan.toml", std::string(kHead) + "[[main]]\nname = \"A\"\nsteps = [{ psu = \"VOLT 1\" }]\n");
    const auto station = write("station.toml", "[instruments.psu]\nscpi = \"tcp:127.0.0.1:1\"\n");

    const auto lacking = run({ENGINEERING_STATION, "plan", "check", plan});
    const auto refused = run(planRun(plan));
    const auto having = run({ENGINEERING_STATION, "plan", "check", plan, "--config", station});

    const std::string line =
        plan + ":6:12: expected an instrument of the station's file, but it has no section [instruments.psu]\n";
    EXPECT_EQ(lacking.status, 2);
    EXPECT_EQ(lacking.err, line);
    EXPECT_EQ(refused.status, 2);
    EXPECT_EQ(refused.err, line);
    EXPECT_EQ(having.status, 0) << having.err;
    EXPECT_EQ(run({ENGINEERING_STATION, "station", "check", "--config", station}).status, 0);
}

TEST_F(PlanProgramTest, ProgramAndItsComplaintsAreInEveryReport)
{
    startBench();
    const auto script = write("dmm.sh", "#!/bin/sh\necho 'lamp is hot' >&2\necho '{\"volts\": 12}'\n");
    std::filesystem::permissions(script, std::filesystem::perms::owner_all);
    const auto plan =
        write("plan.toml", std::string(kHead) +
                               "[[main]]\nname = \"A\"\nsteps = [{ run = [\"dmm.sh\"], expect = { volts = "
                               "{ min = 13, unit = \"V\" } } }]\n");

    const auto outcome = run(planRun(plan));

    EXPECT_EQ(outcome.status, 1) << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("volts: expected at least 13 V, got 12 V"));
    for (const std::vector<std::string>& report : {std::vector<std::string>{"show", "latest"},
                                                   {"export", "latest", "--format", "json"},
                                                   {"export", "latest", "--format", "html"},
                                                   {"export", "latest", "--format", "junit"}}) {
        std::vector<std::string> all{ENGINEERING_STATION, "report", "--results", results().string()};
        all.insert(all.begin() + 2, report.begin(), report.end());
        EXPECT_THAT(run(all).out, HasSubstr("lamp is hot")) << report.back();
    }
}

struct Broken {
    const char* name;
    const char* plan;
    const char* path;
    const char* value;
    const char* reason;
    /// What the head unit lacks from its start on, instead of what is set while it runs.
    const char* lacks = nullptr;
    int status = 1;
};

class BrokenUnit : public PlanProgramTest, public testing::WithParamInterface<Broken>
{
};

TEST_P(BrokenUnit, FailsWithWhatIsWrong)
{
    startBench(GetParam().lacks);
    if (std::string(GetParam().plan) == "provision") {
        // A unit that comes back: what its controller reports is held against what was written then.
        ASSERT_EQ(run(planRun(shipped("provision"), argumentsOf("provision"))).status, 0);
        std::filesystem::remove_all(results());
    }
    ASSERT_EQ(run({HEADUNITCTL, "set", GetParam().path, GetParam().value}).status, 0);

    const auto outcome = run(planRun(shipped(GetParam().plan), argumentsOf(GetParam().plan)));

    EXPECT_EQ(outcome.status, GetParam().status) << outcome.out << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr(GetParam().reason));
    ASSERT_THAT(records(), SizeIs(1));
    EXPECT_THAT(records()[0].dump(), HasSubstr(Json(GetParam().reason).dump().substr(1, 20)));
}

INSTANTIATE_TEST_SUITE_P(
    Plan, BrokenUnit,
    testing::Values(
        Broken{"SmokeRadioAntennaOpen", "smoke", "/system_misc/radio_antenna", "3",
               "antenna: expected \"good\", got \"bad\""},
        Broken{"SmokeGpsAntennaOpen", "smoke", "/system_misc/gps_antenna", "3", "state: expected \"good\", got 3"},
        Broken{"SmokeTunerMissing", "smoke", "/tuner/available", "false",
               "band: expected a value, got a reply without this field", R"({"tuner": {"available": false}})", 3},
        Broken{"SmokeWrongBluetoothAddress", "smoke", "/bluetooth/attributes/3", "\"00:11:22:33:44:55\"",
               "address: expected a text that matches /00 1A 7D"},
        Broken{"EndOfLineDabAntennaOpen", "end-of-line", "/system_misc/dab_antenna", "3",
               "antenna: expected \"good\", got \"bad\""},
        Broken{"EndOfLineTunerMissing", "end-of-line", "/tuner/available", "false",
               "band: expected a value, got a reply without this field", R"({"tuner": {"available": false}})"},
        Broken{"EndOfLineWrongBluetoothAddress", "end-of-line", "/bluetooth/attributes/3", "\"00:11:22:33:44:55\"",
               "address: expected a text that matches /00 1A 7D"},
        Broken{"ProvisionWrongBluetoothAddress", "provision", "/bluetooth/attributes/3", "\"00:11:22:33:44:55\"",
               "address: expected \"00 1A 7D DA 71 13\", got \"00 11 22 33 44 55\""}),
    [](const auto& row) { return row.param.name; });

TEST_F(PlanProgramTest, SimulatedHeadUnitIsSetByThePlan)
{
    startService();
    const auto plan = write("plan.toml", std::string(kHead) + R"(
[[main]]
name = "GPS"
steps = [
  { send = "test.set-mode", with = { mode = "on" } },
  { headunit = { set = "/system_misc/gps_antenna", value = 3 } },
  { send = "gps.antenna", expect = { state = 3 } },
  { headunit = { event = "OnCarSpeedChange", with = { speed = 70 } } },
  { send = "car.speed", expect = { speed = 70 } },
  { headunit = { set = "/system_misc/no_antenna", value = 3 } },
]
)");

    const auto outcome = run(planRun(plan));

    EXPECT_EQ(outcome.status, 6) << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("5 passed, 1 in error"));
    EXPECT_THAT(outcome.out, HasSubstr("the simulated head unit refused: "));
}

TEST_F(PlanProgramTest, WithoutASimulatedHeadUnitNothingIsRun)
{
    startService();
    hideBus();
    const auto plan = write("plan.toml", std::string(kHead) + R"(
[[main]]
name = "GPS"
steps = [{ headunit = { set = "/system_misc/gps_antenna", value = 3 } }]
)");

    const auto outcome = run(planRun(plan));

    EXPECT_EQ(outcome.status, 5) << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("there is no simulated head unit on the session bus"));
}

TEST_F(PlanProgramTest, InterruptTearsDownAndLeavesARecordThatSaysAborted)
{
    startService();
    const auto plan = write("plan.toml", std::string(kHead) + R"(
[[main]]
name = "Main"
steps = [
  { send = "test.set-mode", with = { mode = "on" } },
  { wait = "keys.pressed", timeout = 3600 },
]
[[teardown]]
name = "End"
steps = [{ send = "test.set-mode", with = { mode = "off" }, expect = { mode = "off" } }]
)");
    ChildProcess& tool = start(planRun(plan));
    ASSERT_TRUE(tool.waitForLine(ChildProcess::Stream::kOut, "test.set-mode"));

    tool.signal(SIGINT);

    expectEnd(tool, 4);
    EXPECT_THAT(tool.output(ChildProcess::Stream::kOut), HasSubstr("PASS    End / test.set-mode"));
    ASSERT_THAT(records(), SizeIs(1));
    EXPECT_EQ(records()[0]["verdict"], "ABORTED");
}

TEST_F(PlanProgramTest, KilledSoakLeavesARecordOfItsRounds)
{
    startService();
    const auto plan = write("plan.toml", std::string(kHead) + R"(
[[main]]
name = "Loop"
repeat = 1000000
steps = [{ send = "test.mode" }, { send = "test.mode" }]
)");
    ChildProcess& tool = start(planRun(plan));
    ASSERT_TRUE(tool.waitForLine(ChildProcess::Stream::kOut, "Loop, round 300 /"));

    tool.signal(SIGKILL);
    expectEnd(tool, 128 + SIGKILL);

    const auto report = [this](std::vector<std::string> words) {
        words.insert(words.begin(), {ENGINEERING_STATION, "report"});
        words.insert(words.end(), {"--results", results().string()});
        const auto outcome = run(words);
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        return outcome.out;
    };
    const std::string shown = report({"show", "latest"});
    EXPECT_THAT(shown, HasSubstr("the run did not end: the station was stopped or lost its power"));
    EXPECT_THAT(shown, testing::ContainsRegex("(29[89]|[3-9][0-9][0-9]|[0-9]{4,}) rounds, 0 failed"));
    const auto rows = linesOf(report({"export", "latest", "--format", "csv"}));
    EXPECT_GE(rows.size(), 598U);
    for (const char* format : {"html", "junit", "json"}) {
        EXPECT_THAT(report({"export", "latest", "--format", format}), HasSubstr("ABORTED"));
    }
}

TEST_F(PlanProgramTest, SecondInterruptEndsTheTeardown)
{
    startService();
    const auto plan = write("plan.toml", std::string(kHead) + R"(
[defaults]
teardown_limit = 3600
[[main]]
name = "Main"
steps = [{ send = "test.mode" }, { wait = "keys.pressed", timeout = 3600 }]
[[teardown]]
name = "End"
steps = [{ send = "test.mode" }, { wait = "keys.pressed", timeout = 3600 }]
)");
    ChildProcess& tool = start(planRun(plan));
    ASSERT_TRUE(tool.waitForLine(ChildProcess::Stream::kOut, "Main / test.mode"));
    tool.signal(SIGINT);
    ASSERT_TRUE(tool.waitForLine(ChildProcess::Stream::kOut, "End / test.mode"));

    tool.signal(SIGINT);

    expectEnd(tool, 4);
    EXPECT_EQ(records().at(0)["verdict"], "ABORTED");
}

TEST_F(PlanProgramTest, ThirdInterruptEndsARunWhoseOutputIsNotRead)
{
    startService();
    const auto plan = write("plan.toml", std::string(kHead) + "[[main]]\nname = \"Main\"\nsteps = [{ name = \"" +
                                             std::string(8000, 'x') + "\", send = \"test.mode\" }]\n");
    const std::string pipe = (directory() / "pipe").string();
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const host::Descriptor reader(open(pipe.c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(fcntl(reader.get(), F_SETPIPE_SZ, 4096), 4096);
    ChildProcess& tool =
        start({"sh", "-c", "exec " + shellWords(ENGINEERING_STATION) + " plan run " + plan + " --no-record > " + pipe});
    const auto isFull = [&] {
        int held = 0;
        return ioctl(reader.get(), FIONREAD, &held) == 0 && held == 4096;
    };
    const auto deadline = std::chrono::steady_clock::now() + kGenerous;
    while (!isFull() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    ASSERT_TRUE(isFull());

    // A signal that comes before the one before it was taken is one with it.
    std::optional<int> status;
    while (!status && std::chrono::steady_clock::now() < deadline) {
        tool.signal(SIGINT);
        status = tool.wait(std::chrono::milliseconds(50));
    }

    EXPECT_EQ(status, 4);
}

TEST_F(PlanProgramTest, ReportThatStandardOutputCannotTakeIsAFailure)
{
    startService();
    run(planRun(shipped("smoke")));
    for (const std::string command :
         {"show latest", "--json show latest", "export latest --format html", "export latest --format csv",
          "export latest --format junit", "export latest --format json"}) {
        const auto outcome = run({"bash", "-c",
                                  shellWords(ENGINEERING_STATION) + " report " + command + " --results " +
                                      results().string() + " > /dev/full"});

        EXPECT_EQ(outcome.status, 1) << command;
        EXPECT_EQ(outcome.err, "engineering-station: standard output: cannot be written: No space left on device\n")
            << command;
    }
}

TEST_F(PlanProgramTest, PasswordNumberIsInNoReportAndNotOnTheTerminal)
{
    startBench();
    const auto answers = write("answers.toml",
                               "hu-serial = \"HU7\"\nfactory-serial = \"SN123\"\nproduction-date = \"20261121\"\n"
                               "drawing-code = \"D-42\"\npassword-number = \"739158264\"\n"
                               "bluetooth-address = \"001A7DDA7113\"\ncarplay-mac = \"001122334455\"\n");
    const auto isClear = [](const std::string& text) {
        return text.find("739158264") != std::string::npos || text.find("37 33 39 31") != std::string::npos;
    };

    const auto outcome = run(planRun(shipped("provision"), {"--answers", answers}));

    EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.err;
    EXPECT_FALSE(isClear(outcome.out + outcome.err));
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(results())) {
        if (entry.is_regular_file()) {
            ++files;
            std::ifstream file(entry.path(), std::ios::binary);
            EXPECT_FALSE(isClear({std::istreambuf_iterator<char>(file), {}})) << entry.path();
            EXPECT_EQ(entry.status().permissions() & ~std::filesystem::perms(0640), std::filesystem::perms::none);
        }
    }
    EXPECT_EQ(files, 5U);
    for (const char* format : {"html", "junit", "csv", "json"}) {
        const auto exported = run(
            {ENGINEERING_STATION, "report", "export", "latest", "--results", results().string(), "--format", format});
        EXPECT_EQ(exported.status, 0) << exported.err;
        EXPECT_FALSE(isClear(exported.out + exported.err)) << format;
    }
    run({ENGINEERING_STATION, "send", "test.set-mode", "mode=on"});
    for (const std::vector<std::string>& verb : {std::vector<std::string>{"send", "identity.password-number"},
                                                 {"send", "identity.password-number", "--json"},
                                                 {"send", "0A", "0F"},
                                                 {"identity", "read"},
                                                 {"identity", "read", "--json"},
                                                 {"identity", "verify", "--set", "password-number=739158264"}}) {
        std::vector<std::string> all{ENGINEERING_STATION};
        all.insert(all.end(), verb.begin(), verb.end());
        const auto shown = run(all);
        EXPECT_EQ(shown.status, 0) << shown.err;
        EXPECT_FALSE(isClear(shown.out + shown.err)) << shown.out;
    }
    EXPECT_TRUE(isClear(run({ENGINEERING_STATION, "identity", "read", "--show-secrets"}).out));
}

TEST_F(PlanProgramTest, SeveralUnitsAreTestedAtOnceEachWithItsRecord)
{
    startService();
    const std::string second = (directory() / "second").string();
    startService({"--uart", "pty:" + second});
    const auto plan = write("plan.toml", std::string(kHead) + R"(
[[main]]
name = "Main"
steps = [
  { send = "test.set-mode", with = { mode = "on" } },
  { prompt = "Which label?", id = "label", answer = "text", store = "serial" },
]
)");
    const auto answers = write("answers.toml", "label = \"A\"\n[\"" + second + "\"]\nlabel = \"B\"\n");

    const auto outcome = run(planRun(plan, {"--port", link().string(), "--port", second, "--answers", answers}));

    EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("[" + second + "] PASS"));
    EXPECT_THAT(outcome.out, HasSubstr(second + ", unit B"));
    EXPECT_THAT(outcome.out, HasSubstr(link().string() + ", unit A"));
    EXPECT_THAT(records(), SizeIs(2));
}

TEST_F(PlanProgramTest, TwoUnitsGetNoIdentityInCommon)
{
    startService();
    const std::string second = (directory() / "second").string();
    startService({"--uart", "pty:" + second});

    const auto outcome = run(planRun(shipped("provision"),
                                     {"--port", link().string(), "--port", second, "--answers", answersOfAGoodUnit()}));

    EXPECT_EQ(outcome.status, 6) << outcome.out << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("hu-serial: expected another answer for each unit, got 'HU7' for "));
    std::vector<std::string> verdicts;
    for (const Json& record : records()) {
        verdicts.push_back(record["verdict"]);
    }
    EXPECT_THAT(verdicts, testing::UnorderedElementsAre("PASS", "ERROR"));
}

TEST_F(PlanProgramTest, QuestionsAreAskedInTheOrderOfThePortsWhicheverUnitIsFaster)
{
    const PtyPeer silent;
    startService();
    const auto plan = write("plan.toml", std::string(kHead) + R"(
[[main]]
name = "Main"
steps = [{ send = "test.mode", timeout = 0.5 }, { prompt = "Lit?", id = "lit" }]
)");
    auto terminal = environment();
    terminal["TERM"] = "dumb";

    const auto [text, status] =
        runOnTerminal(planRun(plan, {"--port", silent.path(), "--port", link().string()}), terminal, "y\nn\n");

    EXPECT_EQ(status, 1) << text;
    EXPECT_THAT(text, HasSubstr("[" + silent.path() + "] PASS    Main / lit"));
    EXPECT_THAT(text, HasSubstr("[" + link().string() + "] FAIL    Main / lit"));
}

TEST_F(PlanProgramTest, EmptySerialNumberIsWrongUse)
{
    for (const auto& arguments : {std::vector<std::string>{"--serial", ""}, {"--serial="}}) {
        const auto outcome = run(planRun(shipped("smoke"), arguments));

        EXPECT_EQ(outcome.status, 2) << outcome.out;
        EXPECT_THAT(linesOf(outcome.err), ElementsAre(HasSubstr("--serial")));
    }
    EXPECT_FALSE(std::filesystem::exists(results()));
}

TEST_F(PlanProgramTest, LimitOnTheSizeOfFilesIsAFullDisk)
{
    startBench();
    // The limit would cut the counters of a coverage build short, and every later program would complain about them:
    // this one keeps its own.
    std::vector<std::string> arguments{"bash", "-c",
                                       "ulimit -f 8; GCOV_PREFIX=$1; shift; export GCOV_PREFIX; exec \"$@\"", "bash",
                                       (directory() / "counters").string()};
    const auto command = planRun(shipped("smoke"));
    arguments.insert(arguments.end(), command.begin(), command.end());

    const auto outcome = run(arguments);

    EXPECT_EQ(outcome.status, 7) << outcome.out << outcome.err;
    EXPECT_THAT(outcome.out, HasSubstr("NOT RECORDED smoke"));
    EXPECT_THAT(linesOf(outcome.out).back(), AllOf(HasSubstr("        incomplete record in "), HasSubstr(".running")));
    ASSERT_THAT(linesOf(outcome.err), testing::Not(IsEmpty()));
    EXPECT_THAT(linesOf(outcome.err).front(),
                AllOf(HasSubstr(": not recorded: " + results().string()),
                      testing::EndsWith("/record.jsonl: cannot be written: File too large")));
}

TEST_F(PlanProgramTest, JsonIsOneObjectPerLine)
{
    startService();

    const auto outcome = run(planRun(shipped("smoke"), {"--json"}));

    EXPECT_EQ(outcome.status, 0) << outcome.err;
    std::vector<std::string> events;
    for (const auto& line : linesOf(outcome.out)) {
        const auto object = Json::parse(line);
        EXPECT_EQ(object["schema"], 1);
        events.push_back(object["event"]);
    }
    EXPECT_THAT(events, SizeIs(16));  // 14 steps between begin and end
    EXPECT_EQ(events.front(), "started");
    EXPECT_EQ(events.back(), "ended");
}

TEST_F(PlanProgramTest, ParametersAndLimitsOfAVariantHoldInTheRunAndStandInTheRecord)
{
    startService();
    write("limits.csv",
          "variant,measurement,min,max,unit,value\nEU,fm,87.5,108,MHz,\nEU,nominal,,,,94.7\nJP,fm,76,95,MHz,\n"
          "JP,nominal,,,,79.5\nUS,fm,98,108,MHz,\n");
    const auto plan = write("plan.toml", std::string(kHead) + R"(limits = "limits.csv"
[parameters.nominal]
type = "number"
unit = "MHz"
help = "The station that plays"
[parameters.offset]
type = "number"
default = 10
unit = "kHz"
[[main]]
name = "Tuner"
steps = [
  { send = "test.set-mode", with = { mode = "on" } },
  { send = "tuner.play", with = { frequency = "${nominal}" } },
  { name = "Plays", send = "tuner.frequency", retries = 20, store = "now", expect = { frequency = { min = "${nominal} - ${offset}", max = "${nominal} + ${offset}", unit = "MHz" } } },
  { name = "In the band", send = "tuner.frequency", expect = { frequency = { limits = "fm" } } },
  { name = "Stays", send = "tuner.frequency", expect = { frequency = { min = "${now} - 1", max = "${now} + 1" } } },
]
)");
    const auto check = [&](std::vector<std::string> options) {
        options.insert(options.begin(), {ENGINEERING_STATION, "plan", "check", plan});
        return run(options);
    };

    EXPECT_EQ(check({}).err, plan + ":4:10: expected a variant of limits.csv, as in --variant EU, JP, US, got none\n" +
                                 plan + ":5:1: 'nominal': expected a value, as in --set nominal=40, got none\n");
    EXPECT_EQ(check({"--variant", "XX"}).status, 2);
    EXPECT_EQ(check({"--variant", "EU", "--set", "nominl=90"}).err,
              "engineering-station: " + plan +
                  ": --set: expected a parameter of the plan, got 'nominl'; did you mean 'nominal'?\n");
    EXPECT_EQ(check({"--variant", "EU", "--set", "nominal=high"}).err,
              "engineering-station: " + plan + ": --set: 'nominal': expected a number in MHz, got 'high'\n");
    EXPECT_EQ(check({"--variant", "EU", "--set", "nominal"}).status, 2);
    EXPECT_THAT(check({"--variant", "EU"}).out,
                AllOf(HasSubstr("plan.toml: sound, 5 steps"),
                      HasSubstr("\n  nominal = 94.7 MHz (limits.csv:3): The station that plays\n"
                                "  offset = 10 kHz (default)\n  variant = EU (--variant)")));

    environment()["ENGINEERING_STATION"] =
        write("station.toml", "[parameters]\nvariant = \"JP\"\noffset = \"0.02 MHz\"\nother = 1\n");
    const auto japan = run(planRun(plan, {"--set", "offset=30"}));
    EXPECT_EQ(japan.status, 0) << japan.out << japan.err;
    const auto foreign = run(planRun(plan, {"--variant", "US", "--set", "nominal=94700kHz"}));
    EXPECT_EQ(foreign.status, 1) << foreign.out << foreign.err;
    EXPECT_THAT(foreign.out, HasSubstr("frequency: expected 98 to 108 MHz on FM, got 94.7 MHz on FM"));

    for (const Json& record : records()) {
        const bool passed = record["verdict"] == "PASS";
        std::vector<std::string> values;
        for (const Json& each : record["plan"]["parameters"]) {
            values.push_back(each["name"].get<std::string>() + "=" + each["value"].dump() +
                             each["unit"].get<std::string>() + " " +
                             std::filesystem::path(each["from"].get<std::string>()).filename().string());
        }
        EXPECT_THAT(values, passed ? ElementsAre("nominal=79.5MHz limits.csv:5", "offset=30kHz --set",
                                                 "variant=\"JP\" station.toml:2:11")
                                   : ElementsAre("nominal=94.7MHz --set", "offset=20kHz station.toml:3:10",
                                                 "variant=\"US\" --variant"));
        const Json& steps = record["phases"][1]["groups"][0]["tries"][0]["steps"];
        const auto limits = [&](std::size_t step) {
            return steps.at(step)["attempts"].back()["measurements"][0]["limits"].dump();
        };
        EXPECT_EQ(limits(2), passed ? R"({"maximum":79.53,"minimum":79.47})" : R"({"maximum":94.72,"minimum":94.68})");
        EXPECT_EQ(limits(4), passed ? R"({"maximum":7951,"minimum":7949})" : R"({"maximum":9471,"minimum":9469})");
        const auto html = results() / record["id"].get<std::string>() / "report.html";
        EXPECT_THAT(readText(html.string()), HasSubstr(passed ? "79.5 MHz (limits.csv:5)" : "94.7 MHz (--set)"));
    }
}

TEST_F(PlanProgramTest, ShippedReceptionPlanPassesInAnotherMarket)
{
    startBench();

    const auto outcome = run(planRun(
        shipped("reception"), {"--answers", argumentsOf("reception").at(1), "--variant", "JP", "--set", "offset=20"}));

    EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.err;
}

TEST_F(PlanProgramTest, LimitsAreProvenByAGoodUnitAndABadOne)
{
    startBench();
    const auto plan = write("smoke.toml", readText(shipped("smoke")));

    const auto good = run(planRun(plan, {"--verify-limits", "good", "--quiet"}));
    EXPECT_EQ(good.status, 1) << good.out << good.err;
    EXPECT_THAT(good.out, AllOf(StartsWith("PASS "), EndsWith("LIMITS  0 of 1 proven by 1 run of good units and 0 "
                                                              "runs of bad ones\n        Audio / Volume: volume at "
                                                              "most 40: no bad unit has failed it\n")));

    const auto sound = run(planRun(plan, {"--verify-limits", "bad", "--quiet"}));
    EXPECT_EQ(sound.status, 1) << sound.out << sound.err;
    EXPECT_THAT(sound.out, HasSubstr("no bad unit has failed it\n"));

    ASSERT_EQ(run({HEADUNITCTL, "set", "/audio/volume", "45"}).status, 0);
    const auto bad = run(planRun(plan, {"--verify-limits", "bad", "--json"}));
    EXPECT_EQ(bad.status, 0) << bad.out << bad.err;
    const auto proof = Json::parse(linesOf(bad.out).back());
    EXPECT_EQ(proof["event"], "limits");
    EXPECT_EQ(proof["good_runs"], 1);
    EXPECT_EQ(proof["bad_runs"], 2);
    EXPECT_EQ(proof["limits"].at(0)["good_passed"]["value"], 12);
    EXPECT_EQ(proof["limits"][0]["bad_failed"]["value"], 45);
    EXPECT_EQ(proof["limits"][0]["proven"], true);
    std::vector<std::string> kinds;
    for (const Json& record : records()) {
        kinds.push_back(record["verify_limits"].get<std::string>() + " " + record["verdict"].get<std::string>());
    }
    EXPECT_THAT(kinds, testing::UnorderedElementsAre("good PASS", "bad PASS", "bad FAIL"));

    const auto wrong = run(planRun(plan, {"--verify-limits", "good", "--quiet"}));
    EXPECT_EQ(wrong.status, 1);
    EXPECT_THAT(wrong.out, HasSubstr("volume at most 40: a good unit fails it with 45 in smoke-"));

    write("smoke.toml", readText(shipped("smoke")) + "\n# changed\n");
    const auto changed = run(planRun(plan, {"--verify-limits", "bad", "--quiet"}));
    EXPECT_THAT(changed.out, HasSubstr("0 of 1 proven by 0 runs of good units and 1 run of bad ones\n"));
    EXPECT_THAT(changed.out, HasSubstr("no good unit has passed it\n"));
}

TEST_F(PlanProgramTest, LimitsAreProvenWithARecordAndAPlanThatHasSome)
{
    const auto plan =
        write("plan.toml", std::string(kHead) + "[[main]]\nname = \"Mode\"\nsteps = [{ send = \"test.mode\" }]\n");

    const auto none = run(planRun(plan, {"--verify-limits", "good"}));
    EXPECT_EQ(none.status, 2);
    EXPECT_THAT(none.err, HasSubstr("expected a plan with 'min', 'max' or 'max_time' to verify, got none"));
    EXPECT_EQ(run(planRun(shipped("smoke"), {"--verify-limits", "good", "--no-record"})).status, 2);
    EXPECT_EQ(run(planRun(shipped("smoke"), {"--verify-limits", "ugly"})).status, 2);
    EXPECT_EQ(run(planRun(shipped("smoke"), {"--verify-limits", "bad", "--port", "/dev/no-such-line"})).status, 10);
}

TEST_F(PlanProgramTest, SatellitesAreCountedByTheirSignal)
{
    startService();
    const auto plan = write("plan.toml", std::string(kHead) + R"(
[[main]]
name = "GPS"
steps = [
  { send = "gps.satellites", expect = { satellites = { count = { min = 2 }, where = { signal = { min = 30 } } } } },
]
)");
    const auto satellites = [&](const char* rows) {
        return run({HEADUNITCTL, "event", "OnAASatinfoChange", std::string("{\"satellites\": ") + rows + "}"}).status;
    };

    ASSERT_EQ(run({ENGINEERING_STATION, "send", "test.set-mode", "mode=on"}).status, 0);
    ASSERT_EQ(satellites("[[5, 35], [9, 20]]"), 0);
    const auto bad = run(planRun(plan));
    EXPECT_EQ(bad.status, 1);
    EXPECT_THAT(bad.out, HasSubstr("satellites: expected at least 2 with signal at least 30, got 1 of 2: "
                                   "[{number=5 signal=35}]"));
    ASSERT_EQ(satellites("[[5, 35], [9, 30]]"), 0);
    EXPECT_EQ(run(planRun(plan)).status, 0);
}

TEST_F(PlanProgramTest, QuestionWithoutATerminalIsAnErrorThatSaysSo)
{
    startService();
    const auto plan = write(
        "plan.toml", std::string(kHead) + "[[main]]\nname = \"Ask\"\nsteps = [{ prompt = \"Lit?\", id = \"lit\" }]\n");

    const auto outcome = run(planRun(plan));

    EXPECT_EQ(outcome.status, 6);
    EXPECT_THAT(outcome.out, HasSubstr("lit: expected the operator's answer, but there is no terminal to ask at"));
}

TEST_F(PlanProgramTest, LinesTellWhatIsWaitedForWhichRoundItIsAndWhatWasOnlySent)
{
    startService();
    const auto plan = write("plan.toml", std::string(kHead) + R"(
[[main]]
name = "Keys"
repeat = 2
steps = [
  { send = "test.set-mode", with = { mode = "on" } },
  { name = "Play", send = "tuner.play", with = { frequency = 9470 } },
  { name = "Press the volume key", wait = "keys.pressed", timeout = 0.05 },
]
)");

    const auto outcome = run(planRun(plan));

    EXPECT_THAT(outcome.out, HasSubstr("PASS    Keys / Play (sent; no reply is due)\n"));
    EXPECT_THAT(outcome.out, HasSubstr("\nwaiting for Keys / Press the volume key\nTIMEOUT Keys / Press"));
    EXPECT_THAT(outcome.out, HasSubstr("\nwaiting for Keys, round 2 / Press the volume key\n"));
    EXPECT_THAT(outcome.out, HasSubstr("PASS    Keys, round 2 / test.set-mode ("));
}

TEST_F(PlanProgramTest, PortThatIsNotThereHasStatusTen)
{
    const auto outcome = run(planRun(shipped("smoke"), {"--port", "/dev/no-such-line", "--quiet"}));

    EXPECT_EQ(outcome.status, 10);
    EXPECT_THAT(linesOf(outcome.err), ElementsAre(HasSubstr("/dev/no-such-line")));
    EXPECT_EQ(records().at(0)["verdict"], "ERROR");
}

struct WordOrder {
    const char* name;
    std::vector<std::string> words;  // behind "plan run"; PLAN and ANSWERS stand for files
};

class PlanRunWords : public PlanProgramTest, public testing::WithParamInterface<WordOrder>
{
};

TEST_P(PlanRunWords, MayStandInAnyOrder)
{
    const auto answers = write("answers.toml", "");
    std::vector<std::string> all{ENGINEERING_STATION, "plan", "run"};
    for (const std::string& word : GetParam().words) {
        all.push_back(word == "PLAN" ? shipped("smoke") : word == "ANSWERS" ? answers : word);
    }

    const auto outcome = run(all);

    // The port was looked for: plan and options have been understood.
    EXPECT_EQ(outcome.status, 10);
    EXPECT_THAT(outcome.err, HasSubstr("/dev/no-such-line: cannot open"));
}

INSTANTIATE_TEST_SUITE_P(
    Plan, PlanRunWords,
    testing::Values(WordOrder{"PortPlanFlag", {"--port", "/dev/no-such-line", "PLAN", "--no-record"}},
                    WordOrder{"PortPlanShortFlag", {"--no-record", "--port", "/dev/no-such-line", "PLAN", "-q"}},
                    WordOrder{"PortPlanAnswers",
                              {"--no-record", "--port", "/dev/no-such-line", "PLAN", "--answers", "ANSWERS"}},
                    WordOrder{"PortPlan", {"--no-record", "--port", "/dev/no-such-line", "PLAN"}},
                    WordOrder{"PortWithEqualSign", {"--port=/dev/no-such-line", "PLAN", "--no-record"}},
                    WordOrder{"PlanPort", {"PLAN", "--port", "/dev/no-such-line", "--no-record"}},
                    WordOrder{"TwoPortsPlan",
                              {"--port", "/dev/no-such-line", "--port", "/dev/no-other-line", "PLAN", "--no-record"}},
                    WordOrder{"PortPlanPort",
                              {"--port", "/dev/no-such-line", "PLAN", "--port", "/dev/no-other-line", "--no-record"}}),
    [](const auto& row) { return row.param.name; });

TEST_F(PlanProgramTest, PortTakesOneValueEach)
{
    const auto outcome = run(planRun(shipped("smoke"), {"--no-record", "--port", "/dev/one", "/dev/two"}));

    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(linesOf(outcome.err), ElementsAre(HasSubstr("expected no further argument, got '/dev/two'")));
}

TEST_F(PlanProgramTest, MissingPortIsReportedOnceWhereBothOutputsAreOne)
{
    const std::string line =
        shellWords(ENGINEERING_STATION) + " plan run " + shipped("smoke") + " --no-record --port /dev/no-such-line";

    const auto lines = linesOf(run({"bash", "-c", line + " 2>&1"}).out);

    EXPECT_EQ(std::ranges::count_if(
                  lines, [](const std::string& each) { return each.find("cannot open") != std::string::npos; }),
              1);
}

TEST_F(PlanProgramTest, DestructivePlanIsRefusedWithoutYes)
{
    const auto plan =
        write("plan.toml", std::string(kHead) + "[[main]]\nname = \"End\"\nsteps = [{ send = \"car.shut-down\" }]\n");

    const auto outcome = run(planRun(plan));

    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(linesOf(outcome.err), ElementsAre(HasSubstr("--yes")));
    EXPECT_FALSE(std::filesystem::exists(results()));
}

TEST_F(PlanProgramTest, BrokenPlanAndBrokenAnswersAreReportedWithTheirPlace)
{
    const auto plan =
        write("plan.toml", std::string(kHead) + "[[main]]\nname = \"A\"\nsteps = [{ send = \"tuner.pla\" }]\n");
    const auto answers = write("answers.toml", "hu-serail = \"HU7\"\ncarplay-mac = [1]\n");

    const auto ofPlan = run(planRun(plan));
    const auto ofAnswers = run(planRun(shipped("provision"), {"--answers", answers}));

    EXPECT_EQ(ofPlan.status, 2);
    EXPECT_EQ(ofPlan.err, plan + ":6:19: 'tuner.pla' is not a command; did you mean 'tuner.play'?\n");
    const auto object = Json::parse(run(planRun(plan, {"--json"})).out);
    EXPECT_EQ(object["error"].get<std::string>() + "\n", ofPlan.err);
    EXPECT_EQ(object["status"], 2);
    EXPECT_EQ(object["problems"][0]["line"], 6);
    EXPECT_EQ(ofAnswers.status, 2);
    EXPECT_THAT(
        linesOf(ofAnswers.err),
        ElementsAre(
            HasSubstr(":1:1: expected the id of a question of the plan, got 'hu-serail'; did you mean 'hu-serial'?"),
            HasSubstr(":2:15: carplay-mac: expected a text, got another type")));
}

TEST_F(PlanProgramTest, CheckTellsSoundPlansFromBrokenOnes)
{
    const auto broken = write("broken.toml", "schema = 1\n");
    const auto soak = write("soak.toml", std::string(kHead) +
                                             "[[main]]\nname = \"Loop\"\nrepeat = 3000\n"
                                             "steps = [{ send = \"test.mode\" }]\n");

    const auto outcome = run({ENGINEERING_STATION, "plan", "check", shipped("smoke"), broken, soak, "/no/such/plan"});

    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.out, HasSubstr("smoke.toml: sound, 14 steps, at least 50.0 ms\n"));
    EXPECT_THAT(outcome.out, HasSubstr("soak.toml: sound, 1 step, 3000 rounds of 'Loop', at least 10.69 s\n"));
    EXPECT_THAT(outcome.err, HasSubstr("broken.toml:1:1: "));
    EXPECT_THAT(outcome.err, HasSubstr("\nengineering-station: /no/such/plan: no such file\n"));
}

TEST_F(PlanProgramTest, PlanIsFoundByItsNameInTheStationsFoldersAndAmongTheShippedOnes)
{
    std::filesystem::create_directory(directory() / "plans");
    write("plans/own.toml", std::string(kHead) + "[[main]]\nname = \"A\"\nsteps = [{ send = \"test.mode\" }]\n");
    environment()["ENGINEERING_STATION"] = write("station.toml", "[paths]\nplans = [\"plans\"]\n");

    EXPECT_THAT(
        linesOf(run({ENGINEERING_STATION, "plan", "list"}).out),
        ElementsAre(testing::StartsWith("test "), testing::StartsWith("end-of-line"), testing::StartsWith("fixture"),
                    testing::StartsWith("linux-bring-up"), testing::StartsWith("provision"),
                    testing::StartsWith("reception"), testing::StartsWith("smoke")));
    for (const char* name : {"own", "smoke"}) {
        EXPECT_EQ(run(planRun(name, {"--port", "/no/port"})).status, 10) << name;
    }
    const auto missing = run(planRun("smoek"));
    EXPECT_EQ(missing.status, 2);
    EXPECT_THAT(run({ENGINEERING_STATION, "plan", "check", "smoek"}).err,
                testing::StartsWith("engineering-station: smoek: no such file or plan; plan folders: "));
    EXPECT_THAT(missing.err,
                HasSubstr("smoek: no such file or plan; plan folders: " + (directory() / "plans").string()));
}

TEST_F(PlanProgramTest, FileForTheResultsCannotHoldThem)
{
    const auto file = write("results", "");

    const auto outcome = run(planRun(shipped("smoke")));

    EXPECT_EQ(outcome.status, 7);
    EXPECT_EQ(outcome.err, "engineering-station: --results: expected a directory, got " + file + "\n");
}

TEST_F(PlanProgramTest, ListNamesTheShippedPlans)
{
    const auto outcome = run({ENGINEERING_STATION, "plan", "list", std::string(SOURCE_FOLDER) + "/share/plans"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(linesOf(outcome.out),
                ElementsAre(HasSubstr("end-of-line"), HasSubstr("fixture"), HasSubstr("linux-bring-up"),
                            HasSubstr("provision"), HasSubstr("reception"), HasSubstr("smoke")));
}

TEST_F(PlanProgramTest, TerminalShowsProgressFramesAndVerdictsAndAsks)
{
    startService();
    const auto plan = write("plan.toml", std::string(kHead) + R"(
[[main]]
name = "Main"
steps = [
  { send = "test.set-mode", with = { mode = "on" } },
  { prompt = "Is the display lit?", id = "lit" },
  { wait = "keys.pressed", timeout = 0.4 },
]
)");
    auto terminal = environment();
    terminal["TERM"] = "xterm";
    terminal["NO_COLOR"] = std::nullopt;

    const auto [text, status] = runOnTerminal(planRun(plan), terminal, "y\n");

    EXPECT_EQ(status, 3) << text;
    EXPECT_THAT(text, HasSubstr("Is the display lit? [y/n] "));
    EXPECT_THAT(text, HasSubstr("test [################--------] 2/3"));
    EXPECT_THAT(text, HasSubstr("  Main / keys.pressed"));
    EXPECT_THAT(text, HasSubstr("  ← test.set-mode: mode=1 (on)"));
    EXPECT_THAT(text, HasSubstr("\x1b[32mPASS\x1b[0m    Main / lit"));
    EXPECT_THAT(text, HasSubstr("\x1b[1;33mTIMEOUT\x1b[0m Main / keys.pressed"));
}

TEST_F(PlanProgramTest, MistypedScanIsAskedForAgainWithTheReason)
{
    startService();
    const auto plan = write("plan.toml", std::string(kHead) + R"(
[[main]]
name = "Main"
steps = [{ prompt = "Scan the label [y/n]", id = "label", answer = "text", expect = { matches = "HU[0-9]+" } }]
)");

    const auto [text, status] = runOnTerminal(planRun(plan), environment(), "HX7\nHU7\n");

    EXPECT_EQ(status, 0) << text;
    EXPECT_THAT(text, HasSubstr("expected a text that matches /HU[0-9]+/, got 'HX7'"));
    ASSERT_THAT(records(), SizeIs(1));
    EXPECT_THAT(records()[0].dump(), HasSubstr("HU7"));
    EXPECT_THAT(records()[0].dump(), Not(HasSubstr("HX7")));
}

TEST_F(PlanProgramTest, TerminalWithoutColourGetsNone)
{
    startService();
    auto terminal = environment();
    terminal["TERM"] = "xterm";
    terminal["NO_COLOR"] = "1";

    const auto [text, status] = runOnTerminal(planRun(shipped("smoke")), terminal, "");

    EXPECT_EQ(status, 0) << text;
    EXPECT_THAT(text, Not(HasSubstr("\x1b[32m")));
    EXPECT_THAT(text, HasSubstr("PASS    GPS / GPS antenna"));
}

struct Terminal {
    const char* name;
    std::optional<std::string> term;
};

class DumbTerminal : public PlanProgramTest, public testing::WithParamInterface<Terminal>
{
};

TEST_P(DumbTerminal, GetsNoControlSequences)
{
    startService();
    auto terminal = environment();
    terminal["TERM"] = GetParam().term;
    terminal["NO_COLOR"] = std::nullopt;

    const auto plan = runOnTerminal(planRun(shipped("smoke")), terminal, "");
    const auto list = runOnTerminal({ENGINEERING_STATION, "report", "list", results().string()}, terminal, "");
    const auto report =
        runOnTerminal({ENGINEERING_STATION, "report", "show", "latest", "--results", results().string()}, terminal, "");

    EXPECT_THAT(plan.first, HasSubstr("\nPASS    GPS / GPS antenna ("));
    EXPECT_THAT(list.first, HasSubstr("  smoke  " + link().string() + "  PASS  "));
    EXPECT_THAT(report.first, StartsWith("PASS  Smoke test\r\n"));
    for (const auto& [text, status] : {plan, list, report}) {
        EXPECT_EQ(status, 0) << text;
        EXPECT_THAT(text, Not(HasSubstr("\x1b")));
    }
}

INSTANTIATE_TEST_SUITE_P(Plan, DumbTerminal,
                         testing::Values(Terminal{"Named", "dumb"}, Terminal{"Unnamed", std::nullopt},
                                         Terminal{"EmptyName", ""}),
                         [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace tests
