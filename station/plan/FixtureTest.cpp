// Steps with programs, instruments and the unit's power.

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "station/instrument/SimulatedInstrument.h"
#include "station/plan/RunnerTest.h"
#include "tests/support/TempDir.h"

namespace station::plan::tests {
namespace {

using record::Detail;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::Eq;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class FixtureTest : public RunnerTest
{
protected:
    FixtureTest()
    {
        path = folder.path() / "test.toml";
        std::filesystem::create_directory(folder.path() / "scripts");
        equipment.scripts = folder.path() / "scripts";
    }

    void script(const std::string& name, const std::string& text) const
    {
        const auto file = folder.path() / name;
        std::ofstream(file) << "#!/bin/sh\n" << text << '\n';
        chmod(file.c_str(), 0755);
    }

    std::vector<std::string> problemsOf(const std::string& step) const
    {
        std::vector<std::string> lines;
        for (const auto& problem : loaded(step).problems) {
            lines.push_back(problem.text);
        }
        return lines;
    }

    Loaded loaded(const std::string& step) const
    {
        return load(
            "schema = 1\nname = \"test\"\ntitle = \"Test\"\n[[main]]\nname = \"G\"\nsteps = [\n" + step + "\n]\n", path,
            protocol::catalogue::groups(), {}, equipment);
    }

    const record::Attempt& attempt(std::size_t index) const { return step(index).attempts.back(); }

    const ::tests::TempDir folder;
};

TEST_F(FixtureTest, ProgramMeasuresWhatThePlanJudges)
{
    script("dmm.sh",
           "echo connected >&2\nread -r input\n"
           "echo \"{\\\"volts\\\": 13.25, \\\"current\\\": {\\\"value\\\": 620, \\\"unit\\\": \\\"mA\\\"}, \\\"ok\\\": "
           "true, "
           "\\\"with\\\": $input, \\\"word\\\": \\\"$1\\\"}\" | sed 's/\"with\": {.*}, \"word\"/\"word\"/'");

    runSteps(
        R"({ run = ["dmm.sh", "volts"], with = { range = 20 }, expect = { volts = { min = 13, max = 14.5, unit = "V" }, )"
        R"(current = { max = 0.8, unit = "A" }, ok = true, word = { matches = "v.*" } }, store = { battery = "volts" } },
           { run = ["dmm.sh", "${battery}"], expect = { word = "${battery}", volts = 13.25, none = { present = false } } })");

    EXPECT_EQ(verdictOf(result.run), Verdict::kPass) << attempt(0).reason << attempt(1).reason;
    EXPECT_EQ(step(0).kind, "run");
    EXPECT_EQ(step(0).what, "dmm.sh volts");
    EXPECT_THAT(attempt(0).details, ElementsAre(Detail{"exit status", "0"}, Detail{"standard error", "connected␊"}));
    const auto& values = attempt(0).measurements;
    ASSERT_EQ(values.size(), 4U);
    EXPECT_EQ(values[0].limits.maximum, 14.5);
    EXPECT_THAT(values[1],
                Eq(record::Measurement{"current", 0.62, "A", {std::nullopt, 0.8, std::nullopt, std::nullopt}, true}));
    EXPECT_EQ(values[2].limits.equals, record::Scalar(true));
}

TEST_F(FixtureTest, ProgramGetsTheVariablesWithinItsJson)
{
    script("echo.sh",
           "read -r input; printf %s \"{\\\"got\\\": $(printf %s \"$input\" | sed 's/.*\"text\"://; s/}$//')}\"");
    prompter.answers["scan"] = R"(a "quoted" \ text)";

    runSteps(R"({ prompt = "Scan", id = "scan", answer = "text", store = "scan" },
                { run = ["echo.sh"], with = { text = "<${scan}>" }, store = "got" },
                { run = ["echo.sh"], with = { text = "x" }, expect = { got = "x" } })");

    EXPECT_EQ(verdictOf(result.run), Verdict::kPass) << attempt(1).reason << attempt(2).reason;
    EXPECT_EQ(attempt(1).measurements.at(0).value, record::Scalar(R"(<a "quoted" \ text>)"));
}

struct BadProgram {
    const char* name;
    const char* script;
    Verdict verdict;
    const char* reason;
};

class BadProgramTest : public FixtureTest, public testing::WithParamInterface<BadProgram>
{
};

TEST_P(BadProgramTest, HasOneClearReason)
{
    script("bad.sh", GetParam().script);

    runSteps(
        R"({ run = ["bad.sh"], timeout = 2, expect = { volts = { min = 13 } } }, { run = ["bad.sh"], timeout = 2, repeat = 1, store = "v" })");

    EXPECT_EQ(attempt(0).verdict, GetParam().verdict);
    EXPECT_THAT(attempt(0).reason, HasSubstr(GetParam().reason));
    EXPECT_THAT(attempt(0).reason.size(), testing::Lt(600U));
}

INSTANTIATE_TEST_SUITE_P(
    Fixture, BadProgramTest,
    testing::Values(
        BadProgram{"NoJson", "echo 13.2 V", Verdict::kError,
                   "expected an object in JSON on standard output, got '13.2 V"},
        BadProgram{"Nothing", "exit 0", Verdict::kError, "on standard output, got nothing"},
        BadProgram{"List", "echo '[1, 2]'", Verdict::kError, "expected an object in JSON"},
        BadProgram{"TwoObjects", "echo '{}{}'", Verdict::kError, "expected an object in JSON"},
        BadProgram{"Nested", "echo '{\"volts\": [1]}'", Verdict::kError,
                   "'volts': expected a number, a text, true or false, got array"},
        BadProgram{"Deep", "printf '{\"volts\":%s' \"$(head -c 10000 /dev/zero | tr '\\0' '[')\"", Verdict::kError,
                   "expected an object in JSON"},
        BadProgram{
            "DeepAndSound",
            "printf '{\"volts\":%s%s}' \"$(head -c 10000 /dev/zero | tr '\\0' '[')\" \"$(head -c 10000 /dev/zero "
            "| tr '\\0' ']')\"",
            Verdict::kError, "got array"},
        BadProgram{"Nul", "printf '{\"volts\": \\0 13}'", Verdict::kError, "expected an object in JSON"},
        BadProgram{"NoUtf8", "printf '{\"volts\": \"\\377\"}'", Verdict::kError, "expected an object in JSON"},
        BadProgram{"TooBigANumber", "echo '{\"volts\": 1e999}'", Verdict::kError, "expected an object in JSON"},
        BadProgram{"OtherValue", "echo '{\"amps\": 13}'", Verdict::kFail, "volts: expected a value, got none"},
        BadProgram{"TextForANumber", "echo '{\"volts\": \"13.4\"}'", Verdict::kFail,
                   "volts: expected at least 13, got \"13.4\""},
        BadProgram{"OutOfLimits", "echo '{\"volts\": 12.5}'", Verdict::kFail, "volts: expected at least 13, got 12.5"},
        BadProgram{"OtherUnit", "echo '{\"volts\": {\"value\": 13, \"unit\": \"kg\"}}'", Verdict::kPass, ""},
        BadProgram{"Status", "echo a >&2; echo 'no such device' >&2; exit 3", Verdict::kError,
                   "expected exit status 0 of 'bad.sh', got 3: no such device"},
        BadProgram{"Signal", "kill -KILL $$", Verdict::kError, "signal 9 ended it (Killed)"},
        BadProgram{"Endless", "trap '' TERM; while :; do sleep 1; done", Verdict::kTimeout,
                   "expected 'bad.sh' to end within 2 s, but it had to be killed"},
        BadProgram{"Flood", "head -c 1000000000 /dev/zero", Verdict::kError,
                   "expected at most 65536 bytes on the standard output of 'bad.sh', got more"},
        BadProgram{"ClosesEarly", "exec >&-; sleep 0.05", Verdict::kError, "on standard output, got nothing"}),
    [](const auto& row) { return row.param.name; });

TEST_F(FixtureTest, ValueInAnotherKindOfUnitIsAnError)
{
    script("dmm.sh", "echo '{\"volts\": {\"value\": 13, \"unit\": \"kg\"}}'");

    runSteps(R"({ run = ["dmm.sh"], expect = { volts = { min = 13, unit = "V" } } })");

    EXPECT_EQ(attempt(0).verdict, Verdict::kError);
    EXPECT_EQ(attempt(0).reason, "volts: expected a value in V, got 13 kg");
}

TEST_F(FixtureTest, ProgramsComeFromThePlansFolderOrTheScriptsOnly)
{
    script("scripts/ours.sh", "");
    script("own.sh", "");
    script("scripts/own.sh", "exit 1");
    std::ofstream(folder.path() / "plain") << "text";
    std::filesystem::create_symlink("/bin/sh", folder.path() / "link");

    EXPECT_THAT(problemsOf(R"({ run = ["ours.sh"] }, { run = ["./own.sh"] })"), IsEmpty());
    EXPECT_EQ(std::get<RunProgram>(
                  planOf("[[main]]\nname = \"G\"\nsteps = [{ run = [\"own.sh\"] }]\n").main[0].steps[0].action)
                  .words.front(),
              std::filesystem::canonical(folder.path() / "own.sh"));
    EXPECT_THAT(problemsOf(R"({ run = ["/bin/sh"] })"),
                ElementsAre("expected a program in the plan's folder or in 'scripts', got '/bin/sh'"));
    EXPECT_THAT(problemsOf(R"({ run = ["scripts/../own.sh"] })"), ElementsAre(StartsWith("expected a program in")));
    EXPECT_THAT(problemsOf(R"({ run = ["link"] })"), ElementsAre(HasSubstr("got a link to /")));
    EXPECT_THAT(problemsOf(R"({ run = ["plain"] })"), ElementsAre(EndsWith("chmod +x it")));
    EXPECT_THAT(problemsOf(R"({ run = ["scripts"] })"), ElementsAre("scripts: expected a program, got something else"));
    EXPECT_THAT(problemsOf(R"({ run = ["none.sh"] })"), ElementsAre(StartsWith("none.sh: no such program in ")));
    EXPECT_THAT(problemsOf(R"({ run = "own.sh" }, { run = [] }, { run = ["own.sh", 7] })"),
                testing::Each(HasSubstr("'run': expected a program and its arguments")));
}

TEST_F(FixtureTest, HashOfThePlanCoversItsPrograms)
{
    script("dmm.sh", "exit 0");
    const std::string before = loaded(R"({ run = ["dmm.sh"] }, { run = ["dmm.sh"] })").used;
    script("dmm.sh", "exit 1");

    EXPECT_EQ(before, "\ndmm.sh\n#!/bin/sh\nexit 0\n");
    EXPECT_NE(loaded(R"({ run = ["dmm.sh"] })").used, before);
}

TEST_F(FixtureTest, ParametersAndComputedLimitsHoldForTheFixture)
{
    script("dmm.sh", "read -r input; [ \"$1 $input\" = '5 {\"a\":\"<5>\"}' ] && echo '{\"volts\": 12.5}'");

    runText(R"([parameters]
nominal = { type = "number", unit = "V", default = 5 }
[[main]]
name = "G"
steps = [
  { run = ["dmm.sh", "${nominal}"], with = { a = "<${nominal}>" }, expect = { volts = { min = "${nominal} + 7", unit = "V" } }, store = "v" },
  { run = ["dmm.sh", "5"], with = { a = "<5>" }, expect = { volts = { max = "${v} - 1", unit = "V" } } },
])");

    EXPECT_EQ(attempt(0).verdict, Verdict::kPass) << attempt(0).reason;
    EXPECT_EQ(attempt(1).reason, "volts: expected at most 11.5 V, got 12.5 V");
}

TEST_F(FixtureTest, BadStepsAreRefusedWithAReason)
{
    equipment.instruments["psu"] = instrument::parseAddress("tcp:127.0.0.1:1");
    script("a.sh", "");

    EXPECT_THAT(problemsOf(R"({ dmm = "VOLT?" })"),
                ElementsAre("expected an instrument of the station's file, but it has no section [instruments.dmm]"));
    EXPECT_THAT(problemsOf(R"({ psu = "VOLT 1\nVOLT 2" })"), ElementsAre(StartsWith("expected one line of text, got")));
    EXPECT_THAT(problemsOf(R"({ psu = "" })"), ElementsAre("'psu': expected a text that is not empty, got \"\""));
    EXPECT_THAT(problemsOf(R"({ psu = "VOLT 1", expect = { value = 1 } })"),
                ElementsAre("'expect': expected a query such as 'MEAS:CURR?', got 'VOLT 1'"));
    EXPECT_THAT(problemsOf(R"({ psu = "VOLT?", expect = { volts = 1 } })"),
                ElementsAre("'expect': expected 'value', got 'volts'"));
    EXPECT_THAT(problemsOf(R"({ psu = "VOLT?", send = "test.mode" })"),
                ElementsAre("expected one action in the step, got 'send' and 'psu': make two steps"));
    EXPECT_THAT(problemsOf(R"({ sned = "test.mode" })"), testing::Contains(HasSubstr("did you mean 'send'?")));
    EXPECT_THAT(problemsOf(R"({ power = "toggle" })"), ElementsAre(HasSubstr("'power': expected ")));
    EXPECT_THAT(problemsOf(R"({ run = ["a.sh"], with = { at = 2026-01-01 } })"), ElementsAre(HasSubstr("got a date")));
    EXPECT_THAT(problemsOf(R"({ run = ["a.sh"], expect = { v = { min = 2, max = 1 } } })"),
                ElementsAre("'max': expected at least 2, got 1"));
    EXPECT_THAT(problemsOf(R"({ run = ["a.sh"], expect = { i = { max = 800, unit = "ma" } } })"),
                ElementsAre("'unit': expected a unit that the tool converts, such as mA, got 'ma'"));
    EXPECT_THAT(problemsOf(R"({ run = ["a.sh"], expect = { i = { max = 800, unit = "mA" } }, store = "i" },
                              { pause = 1, only_if = { i = { "<" = "0.5 A" } } },
                              { pause = 1, only_if = { i = { "<" = "0.5 V" } } })"),
                ElementsAre("'i': expected a number in mA, got '0.5 V'"));
    EXPECT_THAT(problemsOf(R"({ run = ["a.sh", "${none}"], with = { a = ["${nothing}"] } })"),
                ElementsAre(StartsWith("expected an earlier step with store = \"none\""),
                            StartsWith("expected an earlier step with store = \"nothing\"")));
}

TEST_F(FixtureTest, InstrumentMeasuresWhatThePlanJudges)
{
    instrument::SimulatedInstrument supply(false);
    supply.on["MEAS:CURR?"] = [](const auto& write) { write("+9.0E-01\n"); };
    supply.on["MEAS:POW?"] = [](const auto& write) { write("-3.5\n"); };
    supply.on["STAT?"] = [](const auto& write) { write("CV\n"); };
    supply.on["MEAS:RES?"] = [](const auto& write) { write("+9.90000000E+37\n"); };
    supply.on["LATE?"] = [](const auto&) {};
    supply.start();
    equipment.instruments["psu"] = instrument::parseAddress(supply.address());

    runSteps(R"({ psu = "VOLT 13.5" },
                { psu = "MEAS:CURR?", expect = { value = { max = 0.8, unit = "A" } }, store = "amps" },
                { psu = "CURR ${amps}" },
                { psu = "STAT?", expect = { value = "CV" } },
                { psu = "MEAS:RES?", expect = { value = { min = 1000 } } },
                { psu = "LATE?", timeout = 0.05 },
                { psu = "MEAS:CURR?", expect = { value = { min = 899, max = 901, unit = "mA" } } },
                { psu = "MEAS:POW?", expect = { value = { min = -4, max = -3, unit = "dBm" } } })");

    EXPECT_EQ(step(0).kind, "instrument");
    EXPECT_EQ(attempt(0).verdict, Verdict::kPass) << attempt(0).reason;
    EXPECT_THAT(attempt(0).details, ElementsAre(Detail{"instrument", "ACME,PSU-30,42,1.0"}));
    EXPECT_EQ(attempt(1).verdict, Verdict::kFail);
    EXPECT_EQ(attempt(1).reason, "value: expected at most 0.8 A, got 0.9 A");
    EXPECT_THAT(supply.lines(), testing::Contains("CURR 0.9"));
    EXPECT_EQ(attempt(3).verdict, Verdict::kPass) << attempt(3).reason;
    EXPECT_EQ(attempt(4).verdict, Verdict::kError) << "an overload is not a resistance";
    EXPECT_EQ(attempt(5).verdict, Verdict::kTimeout);
    EXPECT_EQ(attempt(5).reason, "psu: LATE?: expected an answer, got none in time");
    EXPECT_EQ(attempt(6).verdict, Verdict::kPass) << attempt(6).reason;
    EXPECT_EQ(attempt(7).verdict, Verdict::kPass) << attempt(7).reason;
}

/// A unit whose power a script switches.
class PowerTest : public FixtureTest
{
protected:
    PowerTest()
    {
        script("scripts/relay.sh", "cat >" + (folder.path() / "input").string() + "; echo $1 >>" + log().string());
        equipment.power = instrument::PowerControl{{"relay.sh"}, "", "", "", 0s};
        on[0x0F00] = [this](const Frame& frame) { reply(0x8F, 0x00, frame.params); };
        on[0x0FFF] = [this](const Frame&) { reply(0x8F, 0xFF, {1}); };
    }

    std::filesystem::path log() const { return folder.path() / "log"; }

    std::string content(const std::filesystem::path& file) const
    {
        std::ifstream stream(file);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
};

constexpr const char* kModeOn = R"({ send = "test.set-mode", with = { mode = "on" }, expect = { mode = "on" } },)";

TEST_F(PowerTest, CycleWaitsForTheUnitAndSwitchesTheModeOn)
{
    reconnect = 20s;
    int asked = 0;
    on[0x0F00] = [&](const Frame& frame) {
        if (++asked == 2) {
            // Garbage of a boot loader, then the line goes and comes.
            unit.write({'b', 'o', 'o', 't', 0x2A, 0xA2});
            unit.vanish();
            unit.comeBack();
        } else {
            reply(0x8F, 0x00, frame.params);
        }
    };
    known.unit.serial = "HU7";

    runSteps(std::string(kModeOn) + R"({ power = "cycle" }, { send = "test.mode", expect = { mode = "on" } })");

    EXPECT_EQ(verdictOf(result.run), Verdict::kPass) << attempt(1).reason;
    EXPECT_EQ(step(1).kind, "power");
    EXPECT_EQ(result.run.line, LineQuality()) << "losing the line does not count here";
    EXPECT_THAT(headlineOf(result.run).beside, IsEmpty());
    EXPECT_EQ(content(log()), "cycle\n");
    EXPECT_EQ(content(folder.path() / "input"), "{\"port\":\"" + unit.path() + "\",\"serial\":\"HU7\"}");
}

TEST_F(PowerTest, LossAfterTheStepIsALossOfTheLink)
{
    reconnect = 20s;
    on[0x0FFF] = [&](const Frame&) {
        on[0x0FFF] = [this](const Frame&) { reply(0x8F, 0xFF, {1}); };
        unit.vanish();
        unit.comeBack();
    };

    runSteps(R"({ power = "cycle" }, { send = "test.mode" })");

    EXPECT_EQ(verdictOf(result.run), Verdict::kError);
    EXPECT_EQ(result.run.line.losses, 1U);
}

TEST_F(PowerTest, UnitThatDoesNotComeBackIsATimeout)
{
    on[0x0F00] = [&](const Frame&) { unit.vanish(); };

    runSteps(R"({ power = "cycle", timeout = 0.3 })");

    EXPECT_EQ(attempt(0).verdict, Verdict::kTimeout);
    EXPECT_THAT(attempt(0).reason, StartsWith("expected the unit in auto-test mode within 0.3 s, got "));
}

TEST_F(PowerTest, UnitThatIsSlowToAnswerIsAskedAgainAndItsLateAnswersAreNoFault)
{
    int asked = 0;
    on[0x0F00] = [&](const Frame& frame) {
        if (++asked == 2) {
            reply(0x8F, 0x00, frame.params);
            reply(0x8F, 0x00, frame.params);
        }
    };

    runSteps(R"({ power = "cycle" }, { pause = 0.05 }, { send = "test.mode", expect = { mode = "on" } })");

    EXPECT_EQ(verdictOf(result.run), Verdict::kPass) << attempt(0).reason;
}

TEST_F(PowerTest, OffAndOnMayHaveStepsBetweenThem)
{
    reconnect = 0s;
    on[0x0200] = [this](const Frame&) {
        unit.vanish();
        while (content(log()).find("on\n") == std::string::npos) {
            std::this_thread::yield();
        }
        unit.comeBack();
    };

    runSteps(std::string(kModeOn) + R"({ send = "tuner.play", with = { frequency = 9470 } }, { power = "off" },
             { pause = 0.2 }, { power = "on" }, { send = "test.mode", expect = { mode = "on" } })");

    EXPECT_EQ(verdictOf(result.run), Verdict::kPass) << attempt(2).reason << attempt(4).reason;
    EXPECT_EQ(result.run.line.losses, 0U);
    EXPECT_EQ(content(log()), "off\non\n");
}

TEST_F(PowerTest, InstrumentSwitchesOffAndOn)
{
    instrument::SimulatedInstrument supply(false);
    supply.start();
    equipment.instruments["psu"] = instrument::parseAddress(supply.address());
    equipment.power = instrument::PowerControl{{}, "psu", "OUTP OFF", "OUTP ON", 10ms};

    runSteps(R"({ power = "cycle" })");

    EXPECT_EQ(verdictOf(result.run), Verdict::kPass) << attempt(0).reason;
    EXPECT_THAT(supply.lines(), ElementsAre("*IDN?", "SYST:ERR?", "OUTP OFF", "SYST:ERR?", "OUTP ON", "SYST:ERR?"));
}

TEST_F(PowerTest, ScriptThatFailsIsTheReason)
{
    script("scripts/relay.sh", "echo 'no relay' >&2; exit 1");

    runSteps(R"({ power = "cycle" })");

    EXPECT_EQ(attempt(0).verdict, Verdict::kError);
    EXPECT_EQ(attempt(0).reason, "expected exit status 0 of 'relay.sh cycle', got 1: no relay");
    EXPECT_THAT(unit.codes(), IsEmpty());
}

TEST_F(PowerTest, WithoutPowerControlTheStepsAreSkippedWithTheReason)
{
    equipment.power.reset();

    runText(
        "[[main]]\nname = \"G\"\nsteps = [{ send = \"test.mode\" }, { power = \"cycle\" }, { send = \"test.mode\", "
        "requires = \"power\" }]\n[[main]]\nname = \"H\"\nrequires = \"power\"\nsteps = [{ send = \"test.mode\" }]\n");

    EXPECT_EQ(verdictOf(result.run), Verdict::kPass);
    for (const std::size_t index : {1U, 2U}) {
        EXPECT_EQ(step(index).cut.value().text, "the station's file has no section [power]");
    }
    EXPECT_EQ(unit.codes().size(), 1U);
}

}  // namespace
}  // namespace station::plan::tests
