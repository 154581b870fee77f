#include "station/plan/RunSummary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "station/record/Outcome.h"
#include "station/record/ValueText.h"

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

/// @returns a step that was tried so often, with one event of the line each.
record::Step triedStep(std::size_t attempts, Verdict verdict = Verdict::kPass)
{
    record::Step step;
    step.name = "on";
    step.kind = "send";
    for (std::size_t i = 0; i < attempts; ++i) {
        record::Attempt& attempt = step.attempts.emplace_back();
        attempt.verdict = verdict;
        attempt.reason = verdict == Verdict::kPass ? "" : "expected 1, got 0";
        attempt.duration = 5ms;
        attempt.events = {i, i + 1};
    }
    return step;
}

TEST(StepLines, SayHowLongAStepTookAndHowOftenItWasTried)
{
    StepLines lines("", false);
    const StepPlace place{"main", "G"};
    record::Step answered = triedStep(1);
    answered.attempts[0].events.end = 2;
    record::Step measured = triedStep(1);
    measured.attempts[0].measurements.emplace_back();
    record::Step waited = triedStep(1);
    waited.kind = "wait";
    const std::string once = record::toText(std::chrono::nanoseconds(5ms));

    EXPECT_EQ(lines.ended(place, triedStep(1)), "PASS    G / on (sent; no reply is due)");
    EXPECT_EQ(lines.ended(place, answered), "PASS    G / on (" + once + ")");
    EXPECT_EQ(lines.ended(place, measured), "PASS    G / on (" + once + ")");
    EXPECT_EQ(lines.ended(place, waited), "PASS    G / on (" + once + ")");
    EXPECT_EQ(lines.ended(place, triedStep(1, Verdict::kFail)),
              "FAIL    G / on (" + once + ")\n        expected 1, got 0");
    EXPECT_THAT(lines.ended(place, triedStep(2)), testing::EndsWith(", 2 attempts)"));
}

TEST(StepLines, NameTheUnitTheRoundAndTheVerdictInItsColour)
{
    const record::Step step = triedStep(1, Verdict::kFail);
    const auto round = [](std::size_t number) {
        StepPlace place{"main", "G"};
        place.round = number;
        return place;
    };

    EXPECT_EQ(StepLines("/dev/a", false).amended(round(1), step),
              "[/dev/a] FAIL    G / on (verdict changed later)\n        expected 1, got 0");
    EXPECT_EQ(StepLines("", false).amended(round(2), triedStep(1)), "PASS    G, round 2 / on (verdict changed later)");
    EXPECT_THAT(StepLines("", true).amended(round(1), step),
                testing::StartsWith(std::string(record::wordsOf(Verdict::kFail).colour) + "FAIL\033[0m    G / on"));
}

TEST(RunSummary, HasTheUnitTheCountsTheReasonTheLineAndTheTime)
{
    UnitResult unit = unitOf({Verdict::kPass, Verdict::kPass});
    unit.result.run.plan.name = "smoke";
    unit.result.run.unit.port = "/dev/a";
    unit.result.speed.total = 10ms;
    unit.result.speed.wire = 4ms;
    unit.result.speed.steps = 3;
    unit.result.speed.addedPerStep = 1500us;
    const std::string total = record::toText(std::chrono::nanoseconds(10ms));

    EXPECT_EQ(summary(unit, false, false),
              "PASS    smoke at /dev/a: 4 passed\n"
              "        time " +
                  total + "\n");
    EXPECT_EQ(summary(unit, false, true),
              "PASS    smoke at /dev/a: 4 passed\n"
              "        time " +
                  total + ", on the line " + record::toText(std::chrono::nanoseconds(4ms)) +
                  " (2.5 times that), added per step 1.500 ms (median of 3)\n");
    unit.result.speed = {};
    unit.result.run.unit.serial = "HU7";
    unit.result.run.line.losses = 1;
    unit.result.run.findings.push_back({Verdict::kError, "the line failed"});
    unit.result.remedy = "; plug it in";
    EXPECT_EQ(summary(unit, false, true),
              "ERROR   smoke at /dev/a, unit HU7: 4 passed\n"
              "        the line failed; plug it in\n"
              "        line: " +
                  record::lineText(unit.result.run.line) +
                  "\n"
                  "        time " +
                  record::toText(std::chrono::nanoseconds(0)) + "\n");
}

TEST(RunSummary, PassThatIsNotRecordedIsShownInTheColourOfAnError)
{
    UnitResult unit = unitOf({Verdict::kPass});
    unit.recordError = "the disk is full";

    EXPECT_THAT(summary(unit, false, false), testing::StartsWith("NOT RECORDED "));
    EXPECT_THAT(summary(unit, true, false),
                testing::StartsWith(std::string(record::wordsOf(Verdict::kError).colour) + "NOT RECORDED\033[0m "));
}

TEST(RunSummary, TallyIsInWords)
{
    const auto unit = unitOf({Verdict::kPass, Verdict::kPass, Verdict::kFail, Verdict::kSkipped});

    EXPECT_EQ(format(outcomeOf(unit.result.run).tally), "4 passed, 1 failed, 1 skipped");
}

record::Step stepOf(record::Run& run, std::chrono::microseconds began, std::chrono::microseconds duration,
                    std::chrono::microseconds unitTook, record::Verdict verdict = record::Verdict::kPass)
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

TEST(Speed, StepWithoutAnAnswerCountsUnlessItWaitedForOne)
{
    record::Run run;
    const auto steps = [&](std::chrono::microseconds duration, const std::function<void(record::Step&)>& change) {
        record::Step step = stepOf(run, 10ms, duration, 0ms);
        --step.attempts[0].events.end;  // the frame that was received
        change(step);
        SpeedMeter meter;
        meter.add(run, step);
        return meter.speed().steps;
    };
    EXPECT_EQ(steps(50ms, [](record::Step&) {}), 1u);
    EXPECT_EQ(steps(50'001us, [](record::Step&) {}), 0u);
    EXPECT_EQ(steps(1ms, [](record::Step& step) { step.kind = "wait"; }), 0u);
    EXPECT_EQ(steps(1ms, [](record::Step& step) { step.attempts[0].verdict = Verdict::kFail; }), 0u);
    EXPECT_EQ(steps(1ms, [](record::Step& step) { step.attempts[0].events.begin += 1; }), 0u) << "sent nothing";
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

TEST(Speed, OfMoreThanTenThousandStepsEverySecondCounts)
{
    record::Run run;
    SpeedMeter meter;
    std::chrono::microseconds began{0};
    // The station adds 0, 1, 2, ... us.
    for (int i = 0; i <= 15'000; ++i) {
        run.events = {};
        meter.add(run, stepOf(run, began, 20ms, 0ms));
        began += std::chrono::microseconds(i);
    }

    EXPECT_EQ(meter.speed().steps, 15'001u);
    EXPECT_EQ(meter.speed().addedPerStep, 7500us);
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
