#include "station/plan/Speed.h"

#include <gtest/gtest.h>

namespace station::plan {
namespace {

using namespace std::chrono_literals;

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
    run.started = std::chrono::system_clock::time_point(0ms);
    run.ended = std::chrono::system_clock::time_point(100ms);
    record::Group group;
    // From begin to begin less the unit's time: 20 - 15 = 5, 30 - 28 = 2, and 9 - 1 = 8 for the last.
    group.tries.push_back(
        {{stepOf(run, 10ms, 16ms, 15ms), stepOf(run, 30ms, 29ms, 28ms), stepOf(run, 60ms, 9ms, 1ms)}});
    run.phases.push_back({"main", {group}, {}});

    const Speed speed = speedOf(run);

    EXPECT_EQ(speed.total, 100ms);
    EXPECT_EQ(speed.wire, 6ms);
    EXPECT_EQ(speed.addedPerStep, 5ms);
    EXPECT_EQ(speed.steps, 3u);
}

TEST(Speed, StepThatWaitedForItsTimeDoesNotCount)
{
    record::Run run;
    record::Group group;
    group.tries.push_back({{stepOf(run, 10ms, 1000ms, 0ms, record::Verdict::kTimeout)}});
    run.phases.push_back({"main", {group}, {}});

    EXPECT_EQ(speedOf(run).steps, 0u);
}

TEST(Speed, OfNothingIsNothing)
{
    EXPECT_EQ(speedOf({}).steps, 0u);
}

}  // namespace
}  // namespace station::plan
