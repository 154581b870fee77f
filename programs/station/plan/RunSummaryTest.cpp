#include "programs/station/plan/RunSummary.h"

#include <gtest/gtest.h>

#include <vector>

namespace programs::station_tool {
namespace {

using station::record::Verdict;

/// @returns a unit's run of steps with these verdicts.
UnitResult unitOf(const std::vector<Verdict>& verdicts)
{
    UnitResult unit;
    station::record::Group::Try round;
    for (const Verdict verdict : verdicts) {
        station::record::Step step;
        step.verdict = verdict;
        round.steps.push_back(step);
        unit.result.run.verdict = worse(unit.result.run.verdict, verdict);
    }
    station::record::Group group;
    group.tries.push_back(round);
    unit.result.run.phases.push_back({"main", unit.result.run.verdict, {}, {group}});
    return unit;
}

struct StatusCase {
    const char* name;
    std::vector<Verdict> verdicts;
    Exit status;
};

class RunStatus : public testing::TestWithParam<StatusCase>
{
};

TEST_P(RunStatus, Follows)
{
    EXPECT_EQ(exitStatusOf(unitOf(GetParam().verdicts)), GetParam().status);
}

INSTANTIATE_TEST_SUITE_P(RunSummary, RunStatus,
                         testing::Values(StatusCase{"AllPassed", {Verdict::kPass, Verdict::kSkipped}, kPassed},
                                         StatusCase{"OneFailed", {Verdict::kPass, Verdict::kFail}, kFailed},
                                         StatusCase{"OneInError", {Verdict::kPass, Verdict::kError}, kFailed},
                                         StatusCase{"OneWithoutAnswer", {Verdict::kPass, Verdict::kTimeout}, kNoAnswer},
                                         StatusCase{
                                             "FailedAndWithoutAnswer", {Verdict::kFail, Verdict::kTimeout}, kFailed},
                                         StatusCase{"AllSkipped", {Verdict::kSkipped}, kNothingRun},
                                         StatusCase{"Aborted", {Verdict::kFail, Verdict::kAborted}, kInterrupted}),
                         [](const auto& row) { return row.param.name; });

TEST(RunSummary, EveryRoundOfAGroupCountsAndSupersededTriesDoNot)
{
    UnitResult unit = unitOf({Verdict::kError});
    auto& group = unit.result.run.phases[0].groups[0];
    group.verdict = group.tries[0].verdict = Verdict::kError;
    group.tries.push_back(unitOf({Verdict::kTimeout}).result.run.phases[0].groups[0].tries[0]);
    group.tries[1].verdict = unit.result.run.verdict = Verdict::kTimeout;

    EXPECT_EQ(format(tally(unit.result.run)), "1 in error, 1 timed out");
    EXPECT_EQ(exitStatusOf(unit), kFailed);

    group.tries[0].superseded = true;
    EXPECT_EQ(format(tally(unit.result.run)), "1 timed out");
    EXPECT_EQ(exitStatusOf(unit), kNoAnswer);
}

TEST(RunSummary, PortAndLineComeBeforeWhatTheyCaused)
{
    UnitResult noPort = unitOf({Verdict::kSkipped});
    noPort.result.portUnavailable = true;
    UnitResult noLine = unitOf({Verdict::kError});
    noLine.result.linkFailed = true;

    EXPECT_EQ(exitStatusOf(noPort), kPortUnavailable);
    EXPECT_EQ(exitStatusOf(noLine), kLinkFailed);
}

TEST(RunSummary, RecordThatCouldNotBeWrittenIsAFailure)
{
    UnitResult unit = unitOf({Verdict::kPass});
    unit.recordError = "the disk is full";

    EXPECT_EQ(exitStatusOf(unit), kFailed);
}

TEST(RunSummary, WorstUnitDecides)
{
    const std::vector<UnitResult> units{unitOf({Verdict::kPass}), unitOf({Verdict::kTimeout}),
                                        unitOf({Verdict::kFail})};

    EXPECT_EQ(exitStatusOf(units), kFailed);
    EXPECT_EQ(exitStatusOf(std::span(units).first(2)), kNoAnswer);
    EXPECT_EQ(exitStatusOf(std::span(units).first(1)), kPassed);
}

TEST(RunSummary, TallyIsInWords)
{
    const auto unit = unitOf({Verdict::kPass, Verdict::kPass, Verdict::kFail, Verdict::kSkipped});

    EXPECT_EQ(format(tally(unit.result.run)), "2 passed, 1 failed, 1 skipped");
}

}  // namespace
}  // namespace programs::station_tool
