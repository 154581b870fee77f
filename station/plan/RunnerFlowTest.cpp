#include <future>

#include "station/plan/RunnerTest.h"

namespace station::plan::tests {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr unsigned kFrequency = 0x0201;
constexpr unsigned kMode = 0x0FFF;
constexpr unsigned kFlag = 0x0E01;

// Three phases that send different commands.
constexpr const char* kThreePhases = R"(
[[setup]]
name = "S"
steps = [{ send = "test.mode", timeout = 0.05 }]
[[main]]
name = "M"
steps = [{ send = "tuner.frequency", timeout = 0.05 }, { send = "tuner.frequency", timeout = 0.05 }]
[[teardown]]
name = "T"
steps = [{ send = "other.flag", timeout = 0.05 }]
)";

class RunnerFlowTest : public RunnerTest
{
protected:
    RunnerFlowTest()
    {
        on[kMode] = [this](const Frame&) { reply(0x8F, 0xFF, {1}); };
        on[kFrequency] = [this](const Frame&) { reply(0x82, 0x01, {0x22, 0x2E}); };
        on[kFlag] = [this](const Frame&) { reply(0x8E, 0x01, {0}); };
    }

    Verdict phase(std::size_t index) const { return verdictOf(result.run.phases.at(index)); }
    const record::Group& group(std::size_t index) const { return result.run.phases[1].groups.at(index); }

    std::vector<Verdict> verdicts(const std::deque<record::Step>& steps)
    {
        std::vector<Verdict> list;
        for (const auto& each : steps) {
            list.push_back(verdictOf(each));
        }
        return list;
    }
};

TEST_F(RunnerFlowTest, PhasesRunInOrder)
{
    EXPECT_EQ(verdictOf(runText(kThreePhases)), Verdict::kPass);
    EXPECT_THAT(unit.codes(), ElementsAre(kMode, kFrequency, kFrequency, kFlag));
}

TEST_F(RunnerFlowTest, FailedSetupSkipsTheMainPartAndTearsDown)
{
    on[kMode] = {};
    on.erase(kMode);

    const auto& run = runText(kThreePhases);

    EXPECT_EQ(verdictOf(run), Verdict::kTimeout);
    EXPECT_EQ(phase(1), Verdict::kSkipped);
    EXPECT_EQ(reasonOf(run.phases[1].groups[0].tries[0].steps[0]), "'test.mode' in group 'S' did not pass");
    EXPECT_EQ(phase(2), Verdict::kPass);
    EXPECT_THAT(unit.codes(), ElementsAre(kMode, kFlag));
}

TEST_F(RunnerFlowTest, FailureIsFollowedAsThePlanSays)
{
    runText(R"(
[[main]]
name = "A"
steps = [{ send = "test.mode", expect = { mode = "off" } }, { send = "tuner.frequency" }]
[[main]]
name = "B"
on_failure = "stop-group"
steps = [{ send = "test.mode", expect = { mode = "off" } }, { send = "tuner.frequency" }]
[[main]]
name = "C"
on_failure = "stop"
steps = [{ send = "test.mode", expect = { mode = "off" } }, { send = "tuner.frequency" }]
[[main]]
name = "D"
steps = [{ send = "tuner.frequency" }]
)");

    EXPECT_THAT(verdicts(group(0).tries[0].steps), ElementsAre(Verdict::kFail, Verdict::kPass));
    EXPECT_THAT(verdicts(group(1).tries[0].steps), ElementsAre(Verdict::kFail, Verdict::kSkipped));
    EXPECT_EQ(reasonOf(group(1).tries[0].steps[1]), "the earlier step 'test.mode' did not pass");
    EXPECT_THAT(verdicts(group(2).tries[0].steps), ElementsAre(Verdict::kFail, Verdict::kSkipped));
    EXPECT_THAT(verdicts(group(3).tries[0].steps), ElementsAre(Verdict::kSkipped));
    EXPECT_EQ(reasonOf(group(3).tries[0].steps[0]), "'test.mode' in group 'C' did not pass");
}

TEST_F(RunnerFlowTest, RetriesAreAllKeptAndTheLastDecides)
{
    int asked = 0;
    on[kMode] = [&](const Frame&) { reply(0x8F, 0xFF, {static_cast<std::uint8_t>(++asked == 3)}); };

    const auto& run = runSteps(R"({ send = "test.mode", expect = { mode = "on" }, retries = 5, retry_delay = 0.001 })");

    EXPECT_EQ(verdictOf(run), Verdict::kPass);
    ASSERT_THAT(step(0).attempts, SizeIs(3));
    EXPECT_EQ(step(0).attempts[0].verdict, Verdict::kFail);
    EXPECT_EQ(step(0).attempts[2].verdict, Verdict::kPass);
}

TEST_F(RunnerFlowTest, PollAsksUntilTheReplyIsAsWanted)
{
    int asked = 0;
    on[kFrequency] = [&](const Frame&) {
        if (++asked > 1) {
            reply(0x82, 0x01, {0x22, static_cast<std::uint8_t>(asked == 4 ? 0x2E : 0x00)});
        }
    };

    const auto& run = runSteps(
        R"({ send = "tuner.frequency", timeout = 0.05, poll = { until = { frequency = 8750 }, every = 0 }, store = "f" },
           { send = "tuner.frequency", expect = { frequency = { equals = 8704 } }, only_if = { f = 8750 } })");

    EXPECT_EQ(verdictOf(run), Verdict::kPass) << reasonOf(step(0));
    ASSERT_THAT(step(0).attempts, SizeIs(1));
    ASSERT_THAT(step(0).attempts[0].measurements, SizeIs(2));
    EXPECT_EQ(step(0).attempts[0].measurements[0].value, record::Scalar(87.5));
    EXPECT_EQ(step(0).attempts[0].measurements[1].name, "tries");
    EXPECT_EQ(step(0).attempts[0].measurements[1].value, record::Scalar(4.0));
    EXPECT_EQ(verdictOf(step(1)), Verdict::kPass);
}

TEST_F(RunnerFlowTest, PollThatIsOverSaysTheLastValueAndItsTries)
{
    runSteps(R"({ send = "tuner.frequency", poll = { until = { frequency = 8760 }, every = 0.02, for = 0.01 } })");

    EXPECT_EQ(verdictOf(step(0)), Verdict::kFail);
    EXPECT_EQ(reasonOf(step(0)), "frequency: expected 87.6 MHz on FM, got 87.5 MHz on FM; tried 1 time within 0.01 s");
}

TEST_F(RunnerFlowTest, PollJudgesTheLastReplyOnly)
{
    int asked = 0;
    on[kFrequency] = [&](const Frame&) { reply(0x82, 0x01, {0x22, static_cast<std::uint8_t>(0x2C + ++asked)}); };

    runSteps(
        R"({ send = "tuner.frequency", poll = { until = { frequency = { min = 8750 } }, every = 0 }, max_time = 1 },
                { send = "tuner.frequency", poll = { until = {} }, expect = { frequency = 1 } })");

    EXPECT_EQ(reasonOf(step(0)), "");
    EXPECT_EQ(reasonOf(step(1)), "frequency: expected 0.01 MHz on FM, got 87.51 MHz on FM");
}

TEST_F(RunnerFlowTest, LatencyIsMeasuredAgainstItsLimit)
{
    runSteps(R"({ send = "tuner.frequency", max_time = 0.9 })");

    ASSERT_THAT(step(0).attempts.at(0).measurements, SizeIs(2));
    const auto& latency = step(0).attempts[0].measurements[0];
    EXPECT_EQ(latency.name + " " + latency.unit, "latency ms");
    EXPECT_EQ(latency.limits.maximum, 900.0);
    EXPECT_GT(std::get<double>(latency.value), 0);
    EXPECT_LT(std::get<double>(latency.value), 900);
    EXPECT_TRUE(latency.passed);
}

TEST_F(RunnerFlowTest, AnswerMissesATimeThatIsTooShort)
{
    runSteps(R"({ send = "test.mode", max_time = 0.000001 })");

    EXPECT_EQ(verdictOf(step(0)), Verdict::kFail);
    EXPECT_THAT(reasonOf(step(0)), testing::MatchesRegex("latency: expected at most 0.001 ms, got [0-9.]+ ms"));
}

TEST_F(RunnerFlowTest, ScanOfAnotherLabelIsNotAnAnswer)
{
    prompter.answers = {{"label", "PCB-7"}, {"serial", "HU07"}};

    runSteps(R"({ prompt = "Scan", id = "label", answer = "text", mask = "HU[0-9]+" },
                { prompt = "Scan", id = "serial", answer = "text", mask = "HU[0-9]+" })");

    EXPECT_EQ(verdictOf(step(0)), Verdict::kError);
    EXPECT_EQ(reasonOf(step(0)), "label: expected a text that matches /HU[0-9]+/, got 'PCB-7'");
    EXPECT_EQ(verdictOf(step(1)), Verdict::kPass);
}

TEST_F(RunnerFlowTest, StoredValuesSteerLaterSteps)
{
    prompter.answers = {{"side", "left"}};

    runSteps(R"({ send = "tuner.frequency", store = "f" }, { send = "test.mode", store = "m" },
                { prompt = "Side?", id = "side", answer = ["left", "right"], store = "side" },
                { send = "other.flag", only_if = { f = { ">=" = "87.5MHz", "<" = 9000 }, m = "on", side = { "!=" = "right" } } },
                { send = "other.flag", only_if = { f = { ">" = 8750 } } },
                { send = "other.flag", only_if = { side = { in = ["right"] } } })");

    EXPECT_EQ(verdictOf(step(3)), Verdict::kPass);
    EXPECT_EQ(reasonOf(step(4)), "only for f > 8750");
    EXPECT_EQ(reasonOf(step(5)), "only for side in right");
}

TEST_F(RunnerFlowTest, RepeatedStepKeepsTheFirstTheLastOrAllValues)
{
    std::uint8_t flag = 0;
    on[kFlag] = [&](const Frame&) { reply(0x8E, 0x01, {++flag}); };
    prompter.answers = {{"first", "1"}, {"all", "4, 5, 6"}};
    const auto storeThrice = [](const std::string& keep) {
        return R"({ send = "other.flag", store = ")" + keep + R"(", keep = ")" + keep + R"(", repeat = 3 },)";
    };

    runSteps(storeThrice("first") + R"({ prompt = "?", id = "first", answer = "text", expect = "${first}" },)" +
             storeThrice("all") + R"({ prompt = "?", id = "all", answer = "text", expect = "${all}" })");

    EXPECT_EQ(reasonOf(step(1)), "");
    EXPECT_EQ(reasonOf(step(3)), "");
    EXPECT_EQ(verdictOf(result.run), Verdict::kPass);
}

TEST_F(RunnerFlowTest, PauseTakesItsTimeAndLooksAtTheLine)
{
    on[kMode] = [this](const Frame&) {
        reply(0x8F, 0xFF, {1});
        reply(0x8F, 0xFF, {1});
    };

    runSteps(R"({ send = "test.mode" }, { pause = "30ms" })");

    EXPECT_GE(step(1).attempts.at(0).duration, 30ms);
    EXPECT_EQ(verdictOf(step(1)), Verdict::kPass);
    EXPECT_THAT(reasonOf(step(0)), HasSubstr("expected one reply, got a second"));
}

TEST_F(RunnerFlowTest, PauseEndsWhenTheUserEndsTheRun)
{
    prompter.answers["go"] = "yes";
    prompter.beforeAnswering = [this] { control.request(); };

    runSteps(R"({ prompt = "Go?", id = "go" }, { pause = "1h" })");

    EXPECT_EQ(verdictOf(result.run), Verdict::kAborted);
}

TEST_F(RunnerFlowTest, RepetitionsAllHaveToPass)
{
    int asked = 0;
    on[kMode] = [&](const Frame&) { reply(0x8F, 0xFF, {static_cast<std::uint8_t>(++asked != 2)}); };

    runSteps(R"({ send = "test.mode", expect = { mode = "on" }, repeat = 3 })");

    EXPECT_THAT(step(0).attempts, SizeIs(3));
    EXPECT_EQ(verdictOf(step(0)), Verdict::kFail);
    EXPECT_EQ(reasonOf(step(0)), "mode: expected \"on\", got \"off\"");
}

TEST_F(RunnerFlowTest, GroupIsTriedAgainAsAWhole)
{
    int asked = 0;
    on[kMode] = [&](const Frame&) { reply(0x8F, 0xFF, {static_cast<std::uint8_t>(++asked == 2)}); };

    const auto& run = runText(R"(
[[main]]
name = "A"
retries = 3
retry_delay = 0
on_failure = "stop"
steps = [{ send = "tuner.frequency" }, { send = "test.mode", expect = { mode = "on" } }]
[[main]]
name = "B"
repeat = 2
steps = [{ send = "tuner.frequency" }]
)");

    EXPECT_EQ(verdictOf(run), Verdict::kPass);
    ASSERT_THAT(group(0).tries, SizeIs(2));
    EXPECT_EQ(verdictOf(group(0).tries[0]), Verdict::kFail);
    EXPECT_EQ(verdictOf(group(0).tries[1]), Verdict::kPass);
    EXPECT_EQ(verdictOf(group(0)), Verdict::kPass);
    EXPECT_THAT(group(1).tries, SizeIs(2));
}

TEST_F(RunnerFlowTest, PortThatIsNotThereSkipsEverything)
{
    const Plan plan = planOf(kThreePhases);

    result = runPlan(plan, {"/dev/no-such-line"}, {protocol::catalogue::groups(), prompter, headUnit}, control,
                     observer, {}, reconnect);

    EXPECT_TRUE(result.portUnavailable);
    EXPECT_EQ(verdictOf(result.run), Verdict::kError);
    EXPECT_THAT(headlineOf(result.run).reason, HasSubstr("/dev/no-such-line"));
    for (const auto& skipped : result.run.phases) {
        ASSERT_FALSE(skipped.groups.empty());
        EXPECT_EQ(verdictOf(skipped), Verdict::kSkipped);
    }
}

TEST_F(RunnerFlowTest, PortThatIsInUseSkipsEverything)
{
    const Connection other({unit.path()}, {});

    runText(kThreePhases);

    EXPECT_TRUE(result.portUnavailable);
    EXPECT_THAT(unit.codes(), IsEmpty());
}

TEST_F(RunnerFlowTest, PortThatGoesInTheSetupIsAnErrorThere)
{
    on[kMode] = [&](const Frame&) { unit.vanish(); };

    const auto& run = runText(kThreePhases);

    EXPECT_TRUE(result.linkFailed);
    EXPECT_EQ(verdictOf(run), Verdict::kError);
    EXPECT_EQ(phase(0), Verdict::kError);
    EXPECT_EQ(phase(1), Verdict::kSkipped);
    EXPECT_EQ(phase(2), Verdict::kError);  // the teardown is tried all the same
}

TEST_F(RunnerFlowTest, PortThatGoesInTheMainPartStopsIt)
{
    on[kFrequency] = [&](const Frame&) { unit.vanish(); };

    runText(kThreePhases);

    EXPECT_TRUE(result.linkFailed);
    EXPECT_EQ(phase(0), Verdict::kPass);
    EXPECT_THAT(verdicts(group(0).tries[0].steps), ElementsAre(Verdict::kError, Verdict::kSkipped));
    EXPECT_EQ(reasonOf(group(0).tries[0].steps[1]), "the line failed");
    EXPECT_EQ(phase(2), Verdict::kError);
}

TEST_F(RunnerFlowTest, PortThatGoesInTheTeardownIsAnErrorThere)
{
    on[kFlag] = [&](const Frame&) { unit.vanish(); };

    EXPECT_EQ(verdictOf(runText(kThreePhases)), Verdict::kError);
    EXPECT_EQ(phase(1), Verdict::kPass);
    EXPECT_EQ(phase(2), Verdict::kError);
    EXPECT_TRUE(result.linkFailed);
}

/// A unit whose line is lost once, at the first command for the frequency, and comes back.
class LostLineTest : public RunnerFlowTest
{
protected:
    LostLineTest()
    {
        reconnect = 10s;
        on[kFrequency] = [this](const Frame&) {
            if (std::exchange(lost_, true)) {
                reply(0x82, 0x01, {0x22, 0x2E});
                return;
            }
            unit.vanish();
            unit.comeBack();
        };
    }

private:
    bool lost_ = false;
};

TEST_F(LostLineTest, LineThatWasLostAndCameBackIsAnErrorThatSaysWhen)
{
    const auto& run = runText(kThreePhases);

    const record::Headline headline = headlineOf(run);
    EXPECT_EQ(headline.verdict, Verdict::kError);
    EXPECT_EQ(headline.reason, "the line was lost and came back");
    EXPECT_THAT(headline.beside,
                ElementsAre(HasSubstr(unit.path()), testing::EndsWith("UTC: the device is there again")));
    EXPECT_THAT(verdicts(group(0).tries[0].steps), ElementsAre(Verdict::kPass, Verdict::kPass));
    EXPECT_EQ(run.line, (LineQuality{.losses = 1, .reconnects = 1, .repeatedSends = 1}));
    EXPECT_FALSE(result.linkFailed);
}

/// A unit whose line is lost when it is told a volume, which it does not answer; an operator who answers after that.
class LineLostBehindABackTest : public RunnerFlowTest
{
protected:
    LineLostBehindABackTest()
    {
        on[0x0100] = [this](const Frame&) {
            unit.vanish();
            if (comesBack) {
                unit.comeBack();
            }
            gone_.set_value();
        };
        prompter.answers = {{"lit", "yes"}};
        prompter.beforeAnswering = [this] { gone_.get_future().wait(); };
    }

    static constexpr const char* kPlan = R"(
[[main]]
name = "M"
steps = [{ send = "audio.set-volume", with = { volume = 3 } }, { prompt = "Lit?", id = "lit" }]
)";

    bool comesBack = false;

private:
    std::promise<void> gone_;
};

TEST_F(LineLostBehindABackTest, LossThatNoStepLookedAtIsAnErrorAllTheSame)
{
    const auto& run = runText(std::string("on_link_loss = \"continue\"\n") + kPlan);

    EXPECT_EQ(phase(1), Verdict::kPass);
    EXPECT_EQ(verdictOf(run), Verdict::kError);
    EXPECT_EQ(headlineOf(run).reason, "the line was lost");
    EXPECT_EQ(run.line, (LineQuality{.losses = 1}));
    EXPECT_TRUE(result.linkFailed);
}

TEST_F(LineLostBehindABackTest, LineThatCameBackMeanwhileIsAnErrorByDefault)
{
    comesBack = true;

    const auto& run = runText(kPlan);

    EXPECT_EQ(headlineOf(run).reason, "the line was lost and came back");
    EXPECT_EQ(run.line, (LineQuality{.losses = 1, .reconnects = 1}));
    EXPECT_FALSE(result.linkFailed);
}

TEST_F(LineLostBehindABackTest, WaitDuringWhichTheLineIsLostIsAnErrorNotATimeOut)
{
    reconnect = 10s;

    const auto& run = runText(R"(
[[main]]
name = "M"
steps = [{ send = "audio.set-volume", with = { volume = 3 } }, { wait = "keys.pressed", timeout = 1 }]
)");

    EXPECT_EQ(reasonOf(step(1)), "expected keys.pressed, but the line was lost meanwhile");
    EXPECT_EQ(verdictOf(run), Verdict::kError);
    EXPECT_EQ(run.line.repeatedSends, 0U);
    EXPECT_TRUE(result.linkFailed);
}

TEST_F(LostLineTest, PlanMayContinueAcrossALoss)
{
    const auto& run = runText(std::string("on_link_loss = \"continue\"\n") + kThreePhases);

    EXPECT_EQ(verdictOf(run), Verdict::kPass);
    EXPECT_THAT(headlineOf(run).beside, SizeIs(2));
}

TEST_F(LostLineTest, SilenceIsNotAssertedAcrossALoss)
{
    runText(R"(on_link_loss = "continue"
[[main]]
name = "M"
steps = [{ send = "tuner.frequency", reply = "none", timeout = 0.05 }]
)");

    EXPECT_EQ(verdictOf(group(0).tries[0].steps[0]), Verdict::kError);
    EXPECT_THAT(reasonOf(group(0).tries[0].steps[0]), HasSubstr("expected silence, but the line was lost meanwhile"));
}

TEST_F(LostLineTest, UnitThatComesBackWithoutAutoTestModeHasRestarted)
{
    std::uint8_t mode = 1;
    on[kMode] = [&](const Frame&) { reply(0x8F, 0xFF, {std::exchange(mode, std::uint8_t{0})}); };

    const auto& run = runText(std::string("on_link_loss = \"continue\"\n") + kThreePhases);

    EXPECT_EQ(verdictOf(run), Verdict::kError);
    EXPECT_EQ(headlineOf(run).reason, "the unit restarted: auto-test mode is off");
    EXPECT_THAT(verdicts(group(0).tries[0].steps), ElementsAre(Verdict::kPass, Verdict::kSkipped));
    EXPECT_EQ(reasonOf(run.phases[1]), "the unit restarted: auto-test mode is off");
    EXPECT_EQ(phase(2), Verdict::kPass);
}

TEST_F(RunnerFlowTest, AfterThreeTimeOutsInARowAUnitThatLeftAutoTestModeEndsTheMainPart)
{
    std::uint8_t mode = 1;
    on[kMode] = [&](const Frame&) { reply(0x8F, 0xFF, {std::exchange(mode, std::uint8_t{0})}); };
    on.erase(kFrequency);

    const auto& run = runText(R"(
[[setup]]
name = "S"
steps = [{ send = "test.mode" }]
[[main]]
name = "M"
steps = [{ send = "tuner.frequency", timeout = 0.02, repeat = 22 }]
)");

    EXPECT_EQ(headlineOf(run).reason, "the unit restarted: auto-test mode is off");
    EXPECT_THAT(group(0).tries[0].steps[0].attempts, SizeIs(3));
}

TEST_F(RunnerFlowTest, SilentUnitThatIsStillInAutoTestModeIsTestedOn)
{
    on.erase(kFrequency);

    runText(R"(
[[setup]]
name = "S"
steps = [{ send = "test.mode" }]
[[main]]
name = "M"
steps = [{ send = "tuner.frequency", timeout = 0.02, repeat = 7 }]
)");

    EXPECT_THAT(group(0).tries[0].steps[0].attempts, SizeIs(7));
    EXPECT_EQ(verdictOf(result.run), Verdict::kTimeout);
    EXPECT_EQ(std::ranges::count(unit.codes(), kMode), 3);
}

TEST_F(RunnerFlowTest, OfABabblingUnitTheFirstAndTheLastFramesAreKept)
{
    std::vector<std::uint8_t> notices;
    for (int i = 0; i < 50; ++i) {
        // 86 11 [05]: 03+86+11+05 = 009F, two's complement FF61
        notices.insert(notices.end(), {0x2A, 0xA2, 0x00, 0x03, 0x86, 0x11, 0x05, 0x00, 0xFF, 0x61});
    }
    on[kFrequency] = [&](const Frame&) {
        reply(0x82, 0x01, {0x22, 0x2E});
        unit.flood(notices);
    };

    const auto& run = runText(R"(
[[main]]
name = "M"
steps = [{ send = "tuner.frequency" }, { wait = "media.track-1", timeout = 1 }]
)");

    EXPECT_THAT(run.events.kept(), SizeIs(2 * record::Events::kKept + 2));
    EXPECT_GT(run.events.next(), 3 * record::Events::kKept);
    EXPECT_EQ(run.events.kept().at(1).frame, (Frame{0x82, 0x01, {0x22, 0x2E}}));
}

struct LineLimit {
    const char* name;
    const char* limit;
    Verdict verdict;
    const char* reason;
};

class LineLimitTest : public RunnerFlowTest, public testing::WithParamInterface<LineLimit>
{
};

TEST_P(LineLimitTest, HoldsForTheRun)
{
    on[kFrequency] = [&](const Frame&) {
        // 04+82+01+22+2E = 00D7 wants FF29; and three bytes that belong to nothing
        unit.write({0x2A, 0xA2, 0x00, 0x04, 0x82, 0x01, 0x22, 0x2E, 0xFF, 0x28, 0x55, 0x55, 0x55});
        reply(0x82, 0x01, {0x22, 0x2E});
    };

    const auto& run = runText(std::string(GetParam().limit) + R"(
[[main]]
name = "M"
steps = [{ send = "tuner.frequency" }]
)");

    EXPECT_EQ(run.line, (LineQuality{.corruptFrames = 1, .garbageBytes = 3}));
    EXPECT_EQ(verdictOf(run), GetParam().verdict);
    EXPECT_EQ(headlineOf(run).reason, GetParam().reason);
}

INSTANTIATE_TEST_SUITE_P(RunnerFlowTest, LineLimitTest,
                         testing::Values(LineLimit{"None", "", Verdict::kPass, ""},
                                         LineLimit{"Met", "[line]\nmax_corrupt = 1\nmax_garbage = 3\n", Verdict::kPass,
                                                   ""},
                                         LineLimit{"CorruptFrames", "[line]\nmax_corrupt = 0\n", Verdict::kFail,
                                                   "corrupt frames on the line: expected at most 0, got 1"},
                                         LineLimit{"Garbage", "[line]\nmax_garbage = 2\n", Verdict::kFail,
                                                   "bytes of garbage on the line: expected at most 2, got 3"}),
                         [](const auto& row) { return row.param.name; });

TEST_F(LostLineTest, ReconnectsAndRepeatedSendsHaveLimits)
{
    const auto& run = runText(
        std::string("on_link_loss = \"continue\"\n[line]\nmax_reconnects = 0\nmax_repeated = 0\n") + kThreePhases);

    EXPECT_EQ(verdictOf(run), Verdict::kFail);
    EXPECT_EQ(headlineOf(run).reason, "reconnects on the line: expected at most 0, got 1");
    EXPECT_THAT(headlineOf(run).beside, testing::Contains("repeated sends on the line: expected at most 0, got 1"));
}

TEST_F(RunnerFlowTest, EndInTheSetupTearsDownAndIsAborted)
{
    on[kMode] = [&](const Frame&) { control.request(); };

    const auto& run = runText(kThreePhases);

    EXPECT_EQ(verdictOf(run), Verdict::kAborted);
    EXPECT_EQ(verdictOf(run.phases[0].groups[0].tries[0].steps[0]), Verdict::kAborted);
    EXPECT_EQ(phase(1), Verdict::kSkipped);
    EXPECT_EQ(phase(2), Verdict::kPass);
    EXPECT_THAT(unit.codes(), ElementsAre(kMode, kFlag));
}

TEST_F(RunnerFlowTest, EndInTheMainPartTearsDownAndIsAborted)
{
    on[kFrequency] = [&](const Frame&) { control.request(); };

    const auto& run = runText(kThreePhases);

    EXPECT_EQ(verdictOf(run), Verdict::kAborted);
    EXPECT_EQ(headlineOf(run).reason, "the user ended the run");
    EXPECT_THAT(verdicts(group(0).tries[0].steps), ElementsAre(Verdict::kAborted, Verdict::kSkipped));
    EXPECT_EQ(phase(2), Verdict::kPass);
}

TEST_F(RunnerFlowTest, EndDuringAQuestionIsAborted)
{
    prompter.beforeAnswering = [&] { control.request(); };

    EXPECT_EQ(verdictOf(runSteps(R"({ prompt = "Lit?", id = "lit" })")), Verdict::kAborted);
}

TEST_F(RunnerFlowTest, GroupIsRepeatedUntilItsTimeIsOver)
{
    on[0x0FFF] = [this](const Frame&) { reply(0x8F, 0xFF, {1}); };

    const auto began = std::chrono::steady_clock::now();
    runText("[[main]]\nname = \"G\"\nduration = \"100ms\"\nsteps = [{ send = \"test.mode\" }]\n");

    EXPECT_GE(std::chrono::steady_clock::now() - began, 100ms);
    EXPECT_GT(triesOf(group(0)), 1U);
    EXPECT_EQ(verdictOf(result.run), Verdict::kPass);
}

TEST_F(RunnerFlowTest, RepeatEndsAGroupBeforeItsTimeIsOver)
{
    on[0x0FFF] = [this](const Frame&) { reply(0x8F, 0xFF, {1}); };

    runText("[[main]]\nname = \"G\"\nduration = \"8h\"\nrepeat = 3\nsteps = [{ send = \"test.mode\" }]\n");

    EXPECT_EQ(triesOf(group(0)), 3U);
}

TEST_F(RunnerFlowTest, GroupThatHasNothingToDoDoesNotWaitForItsTime)
{
    headUnit.there = false;

    runText(
        "[[main]]\nname = \"G\"\nduration = 3600\nsteps = [{ send = \"test.mode\", requires = \"headunit\" }]\n"
        "[[main]]\nname = \"H\"\nduration = 3600\nrequires = \"headunit\"\nsteps = [{ send = \"test.mode\" }]\n");

    EXPECT_EQ(triesOf(group(0)), 1U);
    EXPECT_EQ(triesOf(group(1)), 1U);
}

TEST_F(RunnerFlowTest, SecondAnswersCountInTheRoundsThatAreKept)
{
    int asked = 0;
    on[0x0FFF] = [&](const Frame&) {
        reply(0x8F, 0xFF, {1});
        if (++asked % 50 == 0) {
            reply(0x8F, 0xFF, {1});
        }
    };

    runText("[[main]]\nname = \"G\"\nrepeat = 300\nsteps = [{ send = \"test.mode\" }]\n");

    EXPECT_EQ(outcomeOf(result.run).tally, (record::Tally{{Verdict::kPass, 294}, {Verdict::kError, 6}}));
    EXPECT_THAT(group(0).tries, SizeIs(7));
}

TEST_F(RunnerFlowTest, EndStopsAGroupWhoseStepsAreAllSkipped)
{
    int looks = 0;
    headUnit.there = false;
    headUnit.beforeLooking = [&] {
        ++looks;
        control.request();
    };

    runText("[[main]]\nname = \"G\"\nrepeat = 1000\nsteps = [{ send = \"test.mode\", requires = \"headunit\" }]\n");

    EXPECT_EQ(looks, 1);
    EXPECT_EQ(verdictOf(result.run), Verdict::kAborted);
}

TEST_F(RunnerFlowTest, EndBeforeTheBeginningDoesNothingButTearDown)
{
    control.request();

    const auto& run = runText(kThreePhases);

    EXPECT_EQ(verdictOf(run), Verdict::kAborted);
    EXPECT_EQ(phase(1), Verdict::kSkipped);
}

TEST_F(RunnerFlowTest, FirstEndInTheTeardownLetsItFinish)
{
    on[kFlag] = [&](const Frame&) {
        control.request();
        reply(0x8E, 0x01, {0});
    };

    const auto& run = runText(kThreePhases);

    EXPECT_EQ(verdictOf(run), Verdict::kAborted);
    EXPECT_EQ(phase(2), Verdict::kPass);
}

TEST_F(RunnerFlowTest, SecondEndEndsTheTeardown)
{
    on[kFrequency] = [&](const Frame&) { control.request(); };
    on[kFlag] = [&](const Frame&) { control.request(); };

    const auto& run =
        runText(std::string(kThreePhases) + "[[teardown]]\nname = \"T2\"\nsteps = [{ send = \"test.mode\" }]\n");

    EXPECT_EQ(verdictOf(run), Verdict::kAborted);
    EXPECT_EQ(verdictOf(run.phases[2].groups[0]), Verdict::kAborted);
    EXPECT_EQ(verdictOf(run.phases[2].groups[1]), Verdict::kSkipped);
    EXPECT_THAT(unit.codes(), ElementsAre(kMode, kFrequency, kFlag));
}

TEST_F(RunnerFlowTest, TwoEndsAtOnceSkipTheTeardown)
{
    on[kFrequency] = [&](const Frame&) {
        control.request();
        control.request();
    };

    EXPECT_EQ(verdictOf(runText(kThreePhases)), Verdict::kAborted);
    EXPECT_THAT(unit.codes(), ElementsAre(kMode, kFrequency));
}

TEST_F(RunnerFlowTest, TeardownEndsWithItsTime)
{
    on.erase(kFlag);

    const auto& run = runText(R"(
[defaults]
teardown_limit = 0.1
[[main]]
name = "M"
steps = [{ send = "test.mode" }]
[[teardown]]
name = "T"
steps = [{ send = "other.flag", timeout = 3600 }, { send = "test.mode" }]
)");

    EXPECT_EQ(verdictOf(run), Verdict::kError);
    EXPECT_EQ(verdictOf(run.phases[2]), Verdict::kTimeout);
    EXPECT_EQ(reasonOf(run.phases[2].groups[0].tries[0].steps[0]), "the teardown ran out of time");
    EXPECT_EQ(verdictOf(run.phases[2].groups[0].tries[0].steps[1]), Verdict::kSkipped);
}

TEST_F(RunnerFlowTest, TeardownWhoseTimeEndsBetweenStepsIsATimeout)
{
    const auto& run = runText(R"(
[defaults]
teardown_limit = 0.1
[[main]]
name = "M"
steps = [{ send = "test.mode" }]
[[teardown]]
name = "T"
retries = 1
retry_delay = 3600
steps = [{ send = "test.mode", expect = { mode = "off" } }]
)");

    EXPECT_EQ(verdictOf(run), Verdict::kError);
    EXPECT_EQ(headlineOf(run).reason, "teardown: TIMEOUT: T / test.mode (round 2 of 2): the teardown ran out of time");
    EXPECT_EQ(reasonOf(run.phases[2]), "the teardown exceeded its time limit");
}

TEST_F(RunnerFlowTest, TimeOutInTheTeardownStandsBesideALimitThatWasMissed)
{
    on.erase(kFlag);

    const auto& run = runText(R"(
[[main]]
name = "M"
steps = [{ send = "test.mode", expect = { mode = "off" } }]
[[teardown]]
name = "T"
steps = [{ send = "other.flag", timeout = 0.05 }]
)");

    const record::Headline headline = headlineOf(run);
    EXPECT_EQ(headline.verdict, Verdict::kFail);
    EXPECT_EQ(headline.reason, "M / test.mode: mode: expected \"off\", got \"on\"");
    EXPECT_THAT(headline.beside,
                testing::ElementsAre(testing::StartsWith(
                    "teardown: TIMEOUT: T / other.flag: expected the reply of other.flag within 0.05 s, got none")));
}

TEST_F(RunnerFlowTest, FailureInAnEarlierRoundIsTheReason)
{
    int asked = 0;
    on[kMode] = [&](const Frame&) { reply(0x8F, 0xFF, {static_cast<std::uint8_t>(++asked != 1)}); };

    const auto& run = runText(R"(
[[main]]
name = "A"
repeat = 2
steps = [{ send = "test.mode", expect = { mode = "on" } }]
)");

    EXPECT_EQ(verdictOf(run), Verdict::kFail);
    EXPECT_EQ(headlineOf(run).reason, "A / test.mode (round 1 of 2): mode: expected \"on\", got \"off\"");
}

TEST_F(RunnerFlowTest, RunWhoseMainPartIsSkippedIsSkipped)
{
    headUnit.there = false;

    const auto& run = runText(R"(
[[setup]]
name = "S"
steps = [{ send = "test.mode" }]
[[main]]
name = "M"
requires = "headunit"
steps = [{ send = "test.mode" }]
)");

    EXPECT_EQ(phase(0), Verdict::kPass);
    EXPECT_EQ(verdictOf(run), Verdict::kSkipped);
    EXPECT_EQ(headlineOf(run).reason, "no step of the main part was run");
}

TEST_F(RunnerFlowTest, PrompterIsToldHowFarTheRunIs)
{
    headUnit.there = false;

    runText(R"(
[[main]]
name = "M"
repeat = 2
steps = [{ send = "test.mode" }, { send = "test.mode", requires = "headunit" }]
[[main]]
name = "N"
retries = 1
steps = [{ send = "test.mode", expect = { mode = "off" } }]
[[teardown]]
name = "T"
steps = [{ send = "other.flag" }]
)");

    EXPECT_THAT(prompter.steps, ElementsAre(0, 1, 2, 3, 4, 4, 5));
    EXPECT_THAT(prompter.stepsOfTeardown, ElementsAre(5));
}

TEST_F(RunnerFlowTest, SeveralUnitsRunAtOnce)
{
    // Each waits in its first step until the other has come as far.
    std::atomic<int> arrived = 0;
    const auto meet = [&](ScriptedUnit& each) {
        return [&](const Frame&) {
            ++arrived;
            while (arrived < 2) {
                std::this_thread::yield();
            }
            each.write(wireBytes(Frame{0x8F, 0xFF, {1}}));
        };
    };
    std::unique_ptr<ScriptedUnit> second;
    second = std::make_unique<ScriptedUnit>([&](const Frame& frame) { meet (*second)(frame); });
    on[kMode] = meet(unit);
    const Plan plan = planOf("[[main]]\nname = \"M\"\nsteps = [{ send = \"test.mode\", timeout = 20 }]\n");
    const Surroundings shared{protocol::catalogue::groups(), prompter, headUnit};
    RunControl otherControl;
    Observer otherObserver;

    unit.start();
    second->start();
    RunResult other;
    std::thread worker([&] { other = runPlan(plan, {second->path()}, shared, otherControl, otherObserver, {}); });
    result = runPlan(plan, {unit.path()}, shared, control, observer, {});
    worker.join();

    EXPECT_EQ(verdictOf(result.run), Verdict::kPass) << headlineOf(result.run).reason;
    EXPECT_EQ(verdictOf(other.run), Verdict::kPass) << headlineOf(other.run).reason;
    EXPECT_EQ(other.run.unit.port, second->path());
}

TEST_F(RunnerFlowTest, PlaceOfAStepCountsThoseOfARepeatedGroupOnce)
{
    struct Places : Observer {
        std::vector<std::size_t> numbers;
        void onStepEnded(const StepPlace& place, const record::Step&) override { numbers.push_back(place.index); }
    } places;
    const Plan plan = planOf(
        "[[main]]\nname = \"A\"\nrepeat = 2\nsteps = [{ pause = 0.001 }, { pause = 0.001 }]\n"
        "[[main]]\nname = \"B\"\nsteps = [{ pause = 0.001 }]\n");

    runPlan(plan, {unit.path()}, {protocol::catalogue::groups(), prompter, headUnit}, control, places, {});

    EXPECT_THAT(places.numbers, testing::ElementsAre(0, 1, 0, 1, 2));
}

TEST(RunControlTest, FirstRequestInATeardownIsOnlyNoted)
{
    RunControl control;
    ASSERT_TRUE(control.beginTeardown());

    control.request();
    EXPECT_TRUE(control.requested());
    EXPECT_FALSE(control.interrupt().requested());
    control.request();
    EXPECT_TRUE(control.interrupt().requested());
    EXPECT_FALSE(control.beginTeardown());
}

}  // namespace
}  // namespace station::plan::tests
