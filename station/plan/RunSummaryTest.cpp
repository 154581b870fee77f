#include "station/plan/RunSummary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "station/record/Outcome.h"

namespace station::plan {
namespace {

using namespace protocol;
using namespace std::chrono_literals;
using record::Verdict;

record::Group groupOf(const std::vector<Verdict>& verdicts)
{
    record::Group group;
    group.tries.emplace_back();
    for (const Verdict verdict : verdicts) {
        record::Step step;
        if (verdict != Verdict::kSkipped) {
            step.attempts.emplace_back().verdict = verdict;
        }
        group.tries[0].steps.push_back(step);
    }
    return group;
}

/// @returns a unit's run whose steps have these verdicts.
UnitResult unitOf(const std::vector<Verdict>& verdicts, const std::vector<Verdict>& teardown = {Verdict::kPass})
{
    UnitResult unit;
    unit.result.run.phases = {{"setup", {groupOf({Verdict::kPass})}, {}},
                              {"main", {groupOf(verdicts)}, {}},
                              {"teardown", {groupOf(teardown)}, {}}};
    return unit;
}

struct StatusCase {
    const char* name;
    std::vector<Verdict> verdicts;
    ExitStatus status;
    std::vector<Verdict> teardown = {Verdict::kPass};
};

class RunStatus : public testing::TestWithParam<StatusCase>
{
};

TEST_P(RunStatus, Follows)
{
    EXPECT_EQ(exitStatusOf(unitOf(GetParam().verdicts, GetParam().teardown)), GetParam().status);
}

INSTANTIATE_TEST_SUITE_P(
    RunSummary, RunStatus,
    testing::Values(StatusCase{"AllPassed", {Verdict::kPass, Verdict::kSkipped}, kPassed},
                    StatusCase{"OneFailed", {Verdict::kPass, Verdict::kFail}, kFailed},
                    StatusCase{"OneInError", {Verdict::kPass, Verdict::kError}, kError},
                    StatusCase{"OneWithoutAnswer", {Verdict::kPass, Verdict::kTimeout}, kNoAnswer},
                    StatusCase{"FailedAndWithoutAnswer", {Verdict::kFail, Verdict::kTimeout}, kNoAnswer},
                    StatusCase{"AllSkipped", {Verdict::kSkipped}, kNothingRun},
                    StatusCase{"Aborted", {Verdict::kFail, Verdict::kAborted}, kInterrupted},
                    StatusCase{"FailedBeforeATimeOutInTheTeardown", {Verdict::kFail}, kFailed, {Verdict::kTimeout}},
                    StatusCase{"PassedBeforeATimeOutInTheTeardown", {Verdict::kPass}, kError, {Verdict::kTimeout}}),
    [](const auto& row) { return row.param.name; });

TEST(RunSummary, EveryRoundOfAGroupCountsAndSupersededTriesDoNot)
{
    UnitResult unit = unitOf({Verdict::kError});
    auto& group = unit.result.run.phases[1].groups[0];
    group.tries.push_back(groupOf({Verdict::kTimeout}).tries[0]);

    EXPECT_EQ(format(outcomeOf(unit.result.run).tally), "2 passed, 1 in error, 1 timed out");
    EXPECT_EQ(exitStatusOf(unit), kError);

    group.tries[0].superseded = true;
    EXPECT_EQ(format(outcomeOf(unit.result.run).tally), "2 passed, 1 timed out");
    EXPECT_EQ(exitStatusOf(unit), kNoAnswer);
}

TEST(RunSummary, PortAndLineComeBeforeWhatTheyCaused)
{
    UnitResult noPort = unitOf({Verdict::kSkipped});
    noPort.result.portUnavailable = true;
    UnitResult noLine = unitOf({Verdict::kError});
    noLine.result.linkFailed = true;

    EXPECT_EQ(exitStatusOf(noPort), kPortUnavailable);
    EXPECT_EQ(exitStatusOf(noLine), kLineFailed);
}

TEST(RunSummary, PassWhoseResultsCouldNotBeWrittenIsNotRecorded)
{
    UnitResult passed = unitOf({Verdict::kPass});
    passed.recordError = "the disk is full";
    UnitResult failed = unitOf({Verdict::kFail});
    failed.recordError = "the disk is full";

    EXPECT_EQ(headlineText(passed), "NOT RECORDED");
    EXPECT_EQ(exitStatusOf(passed), kNotRecorded);
    EXPECT_EQ(headlineText(failed), "FAIL");
    EXPECT_EQ(exitStatusOf(failed), kNotRecorded);
}

TEST(RunSummary, LastLineTellsAnIncompleteRecord)
{
    UnitResult unit = unitOf({Verdict::kPass});
    unit.folder = "results/ID";
    EXPECT_THAT(summary(unit, false, false), testing::EndsWith("\n        record in results/ID\n"));

    unit.folder += ".running";
    EXPECT_THAT(summary(unit, false, false), testing::EndsWith("\n        incomplete record in results/ID.running\n"));
}

TEST(RunSummary, WorstUnitDecides)
{
    const std::vector<UnitResult> units{unitOf({Verdict::kPass}), unitOf({Verdict::kTimeout}),
                                        unitOf({Verdict::kFail})};

    EXPECT_EQ(exitStatusOf(units), kFailed);
    EXPECT_EQ(exitStatusOf(std::span(units).first(2)), kNoAnswer);
    EXPECT_EQ(exitStatusOf(std::span(units).first(1)), kPassed);
}

TEST(StepLines, OnlyTheFirstStepThatIsSkippedNamesTheReason)
{
    StepLines lines("", false);
    record::Step step;
    step.name = "GPS antenna";
    step.cut = {Verdict::kSkipped, "the port could not be opened"};
    const StepPlace place{"main", "GPS"};

    EXPECT_EQ(lines.ended(place, step), "SKIPPED GPS / GPS antenna\n        the port could not be opened");
    EXPECT_EQ(lines.ended(place, step), "SKIPPED GPS / GPS antenna");
    step.cut->text = "the setup failed";
    EXPECT_EQ(lines.ended(place, step), "SKIPPED GPS / GPS antenna\n        the setup failed");
}

TEST(RunSummary, TallyIsInWords)
{
    const auto unit = unitOf({Verdict::kPass, Verdict::kPass, Verdict::kFail, Verdict::kSkipped});

    EXPECT_EQ(format(outcomeOf(unit.result.run).tally), "4 passed, 1 failed, 1 skipped");
}

record::Step stepOf(record::Run& run, std::chrono::milliseconds began, std::chrono::milliseconds duration,
                    std::chrono::milliseconds unitTook, record::Verdict verdict = record::Verdict::kPass)
{
    record::Attempt attempt;
    attempt.started = std::chrono::system_clock::time_point(began);
    attempt.duration = duration;
    attempt.wireTime = 2ms;
    attempt.verdict = verdict;
    TraceEvent sent;
    attempt.events.begin = run.events.add(sent);
    TraceEvent received;
    received.kind = TraceEvent::Kind::kReceived;
    received.steady = sent.steady + unitTook;
    attempt.events.end = run.events.add(received) + 1;
    record::Step step;
    step.kind = "send";
    step.attempts = {attempt};
    return step;
}

TEST(Speed, IsWhatTheStationAddsToTheUnitsTime)
{
    record::Run run;
    // From begin to begin less the unit's time: 20 - 15 = 5, 30 - 28 = 2, and 9 - 1 = 8 for the last.
    SpeedMeter meter;
    for (const auto& step :
         {stepOf(run, 10ms, 16ms, 15ms), stepOf(run, 30ms, 29ms, 28ms), stepOf(run, 60ms, 9ms, 1ms)}) {
        meter.add(run, step);
    }

    const Speed speed = meter.speed();

    EXPECT_EQ(speed.wire, 6ms);
    EXPECT_EQ(speed.addedPerStep, 5ms);
    EXPECT_EQ(speed.steps, 3u);
}

TEST(Speed, StepThatWaitedForItsTimeDoesNotCount)
{
    record::Run run;
    SpeedMeter meter;
    meter.add(run, stepOf(run, 10ms, 1000ms, 0ms, record::Verdict::kTimeout));

    EXPECT_EQ(meter.speed().steps, 0u);
}

TEST(Speed, PerStepIsShownToDevelopersOnly)
{
    UnitResult unit;
    SpeedMeter meter;
    meter.add(unit.result.run, stepOf(unit.result.run, 10ms, 16ms, 15ms));
    unit.result.speed = meter.speed();

    EXPECT_THAT(summary(unit, false, false), testing::Not(testing::HasSubstr("per step")));
    EXPECT_THAT(summary(unit, false, true), testing::HasSubstr("added per step"));
}

TEST(Speed, OfNothingIsNothing)
{
    EXPECT_EQ(SpeedMeter().speed().steps, 0u);
}

TEST(Speed, OfManyStepsIsTheMedianOfSomeOfThem)
{
    record::Run run;
    SpeedMeter meter;
    for (int i = 0; i < 50'000; ++i) {
        run.events = {};
        meter.add(run, stepOf(run, i * 10ms, 9ms, i % 2 == 0 ? 5ms : 3ms));
    }

    EXPECT_EQ(meter.speed().steps, 50'000u);
    EXPECT_THAT(meter.speed().addedPerStep, testing::AnyOf(5ms, 7ms));
    EXPECT_EQ(meter.speed().wire, 100s);
}

}  // namespace
}  // namespace station::plan
