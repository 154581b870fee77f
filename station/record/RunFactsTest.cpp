#include "station/record/RunFacts.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "protocol/catalogue/Catalogue.h"
#include "station/record/Outcome.h"
#include "station/record/RecordJson.h"
#include "station/record/Reports.h"

namespace station::record {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using namespace std::chrono_literals;

/// Makes runs of one group with two steps, each of which exchanges two frames.
class Soak
{
public:
    explicit Soak(std::size_t whole = 0) : facts_(run_, whole)
    {
        run_.id = "soak";
        run_.started = run_.ended = std::chrono::system_clock::time_point(1'800'000'000s);
        run_.phases = {{"setup", {}, {}}, {"main", {}, {}}, {"teardown", {}, {}}};
        facts_.beginGroup(run_.phases[1], "Loop");
    }

    /// @param value of the first step; the second waits for nothing
    void round(Verdict verdict, double value = 1, bool superseded = false)
    {
        Group::Try& one = facts_.beginTry();
        for (const char* name : {"first", "second"}) {
            Step& step = one.steps.emplace_back();
            step.name = name;
            step.kind = "send";
            if (verdict == Verdict::kSkipped) {
                step.cut = {verdict, "not now"};
                continue;
            }
            Attempt attempt;
            attempt.started = run_.started + std::chrono::milliseconds(10) * static_cast<int>(rounds_);
            attempt.duration = 5ms;
            attempt.events.begin = run_.events.next();
            run_.events.add({TraceEvent::Kind::kSent, {}, {}, {1, 2, {}}, {}});
            const TraceEvent answer{TraceEvent::Kind::kReceived, {}, {}, {0x81, 2, {}}, {}};
            run_.events.claim(run_.events.add(answer), answer);
            attempt.events.end = run_.events.next();
            if (one.steps.size() == 1) {
                attempt.measurements.push_back({"value", value, "V", {.maximum = 2.0}, value <= 2});
                attempt.add({verdict, verdict == Verdict::kPass ? "" : "value: expected at most 2 V"});
            }
            step.attempts.push_back(std::move(attempt));
        }
        facts_.endTry(superseded);
        ++rounds_;
    }

    const Run& end()
    {
        facts_.end();
        return run_;
    }

    const Group& group() const { return run_.phases[1].groups[0]; }

private:
    Run run_;
    RunFacts facts_;
    std::size_t rounds_ = 0;
};

TEST(RunFacts, RunThatLeavesRoundsOutHasTheVerdictsAndFiguresOfTheWholeRun)
{
    std::mt19937 random(11);
    const std::vector<Verdict> verdicts{Verdict::kPass,    Verdict::kPass,    Verdict::kPass, Verdict::kFail,
                                        Verdict::kSkipped, Verdict::kTimeout, Verdict::kError};
    for (int i = 0; i < 40; ++i) {
        Soak small;
        Soak whole(1'000'000);
        // The worse verdicts come late, and not in every run.
        const std::size_t most = 3 + random() % (verdicts.size() - 2);
        const std::size_t rounds = random() % 1500;
        for (std::size_t each = 0; each < rounds; ++each) {
            const Verdict verdict = verdicts[random() % std::min(most, 1 + each / 100)];
            const bool superseded = isBad(verdict) && random() % 3 == 0;
            const double value = std::uniform_real_distribution(0.0, 3.0)(random);
            small.round(verdict, value, superseded);
            whole.round(verdict, value, superseded);
        }

        EXPECT_EQ(verdictOf(small.group()), verdictOf(whole.group()));
        EXPECT_EQ(roundsOf(small.group()), roundsOf(whole.group()));
        const record::Run& left = small.end();
        const record::Run& all = whole.end();
        EXPECT_EQ(triesOf(small.group()), rounds);
        EXPECT_EQ(roundsOf(small.group()), roundsOf(whole.group()));
        EXPECT_EQ(headlineOf(left).verdict, headlineOf(all).verdict);
        EXPECT_EQ(headlineOf(left).reason, headlineOf(all).reason);
        EXPECT_EQ(summaryOf(left, outcomeOf(left)), summaryOf(all, outcomeOf(all)));
        EXPECT_EQ(outcomeOf(left).tally, outcomeOf(all).tally);
    }
}

TEST(RunFacts, LargeGroupKeepsItsFirstFailuresAndOneRoundThatPassed)
{
    Soak soak;
    for (std::size_t i = 0; i < 10'000; ++i) {
        soak.round(i % 10 == 5 ? Verdict::kFail : Verdict::kPass);
    }
    const record::Run& run = soak.end();

    const Group& group = soak.group();
    ASSERT_THAT(group.tries, SizeIs(RunFacts::kKeptFailures + 1));
    EXPECT_EQ(numberOf(group, 0), 0U);
    EXPECT_EQ(verdictOf(group.tries[0]), Verdict::kPass);
    EXPECT_EQ(numberOf(group, 1), 5U);
    EXPECT_EQ(numberOf(group, 200), 1995U);
    EXPECT_EQ(verdictOf(group.tries[200]), Verdict::kFail);
    // Four for each round that is kept.
    EXPECT_EQ(run.events.kept().size(), 4 * group.tries.size());
    EXPECT_EQ(outcomeOf(run).wrong, 1000U);
}

TEST(RunFacts, FailedRoundsOfManyStepsAreFewer)
{
    record::Run run;
    run.phases = {{"main", {}, {}}};
    RunFacts facts(run);
    const Group& group = facts.beginGroup(run.phases[0], "Wide");
    for (int round = 0; round < 200; ++round) {
        Group::Try& one = facts.beginTry();
        one.steps.resize(1000);
        one.steps[0].cut = {Verdict::kFail, "no"};
        facts.endTry(false);
    }
    facts.end();

    EXPECT_THAT(group.tries, SizeIs(RunFacts::kKeptSteps / 1000));
}

TEST(RunFacts, TriesThatWereRepeatedLeaveRoomForTheOnesThatFailed)
{
    record::Run run;
    run.phases = {{"main", {}, {}}};
    RunFacts facts(run);
    const Group& group = facts.beginGroup(run.phases[0], "Wide");
    for (int round = 0; round < 110; ++round) {
        Group::Try& one = facts.beginTry();
        one.steps.resize(40);
        one.steps[0].cut = {Verdict::kFail, "no"};
        facts.endTry(round < 109);
    }
    facts.end();

    EXPECT_FALSE(group.tries.back().superseded);
    EXPECT_EQ(headlineOf(run).verdict, Verdict::kFail);
    EXPECT_THAT(headlineOf(run).reason, HasSubstr("no"));
}

TEST(RunFacts, VerdictsOfTheLastStepsMayStillChange)
{
    std::vector<std::size_t> closed;
    record::Run run;
    run.phases = {{"main", {}, {}}};
    RunFacts facts(run, 0, [&](const Group::Try& one) { closed.push_back(one.steps.size()); });
    Group& group = facts.beginGroup(run.phases[0], "Loop");
    for (int round = 0; round < 1000; ++round) {
        facts.beginTry().steps.resize(1);
        facts.endTry(false);
    }

    EXPECT_EQ(closed.size(), 1000 - RunFacts::kOpenSteps);
    (group.tries.end() - RunFacts::kOpenSteps)->steps[0].cut = {Verdict::kError, "a second answer"};
    facts.end();

    EXPECT_EQ(verdictOf(group), Verdict::kError);
    EXPECT_EQ(verdictOf(group.tries.back()), Verdict::kError);
    EXPECT_EQ(numberOf(group, group.tries.size() - 1), 1000 - RunFacts::kOpenSteps);
}

TEST(RunFacts, UnexpectedEventsStayWhenTheirRoundIsLeftOut)
{
    record::Run run;
    run.phases = {{"main", {}, {}}};
    RunFacts facts(run);
    facts.beginGroup(run.phases[0], "Loop");
    for (int round = 0; round < 500; ++round) {
        Attempt& attempt = facts.beginTry().steps.emplace_back().attempts.emplace_back();
        attempt.events.begin = run.events.next();
        run.events.add({TraceEvent::Kind::kSent, {}, {}, {1, 2, {}}, {}});
        run.events.add({TraceEvent::Kind::kReceived, {}, {}, {0x70, 1, {}}, {}});
        attempt.events.end = run.events.next();
        // Asks between two rounds, as after a time-out.
        run.events.add({TraceEvent::Kind::kSent, {}, {}, {1, 3, {}}, {}});
        facts.endTry(false);
    }
    facts.end();

    const auto& kept = run.events.kept();
    EXPECT_EQ(std::ranges::count(kept, TraceEvent::Kind::kReceived, [](const auto& each) { return each.second.kind; }),
              500);
    EXPECT_LE(kept.size(), 503U);
}

TEST(Statistic, IsThatOfAllNumbersAtOnce)
{
    std::mt19937 random(3);
    std::vector<double> numbers;
    Statistic statistic;
    for (int i = 0; i < 10'000; ++i) {
        // A large offset spoils the sum of squares, but not Welford's way.
        numbers.push_back(1e9 + std::normal_distribution(5.0, 2.0)(random));
        statistic.add(numbers.back());
    }
    double sum = 0;
    for (const double each : numbers) {
        sum += each - 1e9;
    }
    const double mean = 1e9 + sum / 10'000;
    double squares = 0;
    for (const double each : numbers) {
        squares += (each - mean) * (each - mean);
    }

    EXPECT_EQ(statistic.count, 10'000U);
    EXPECT_EQ(statistic.minimum, *std::ranges::min_element(numbers));
    EXPECT_EQ(statistic.maximum, *std::ranges::max_element(numbers));
    EXPECT_NEAR(statistic.mean, mean, 1e-5);
    EXPECT_NEAR(statistic.sigma(), std::sqrt(squares / 9'999), 1e-6);
}

TEST(Statistic, OfOneNumberHasNoSigma)
{
    Statistic statistic;
    statistic.add(-4);

    EXPECT_EQ(statistic.minimum, -4);
    EXPECT_EQ(statistic.maximum, -4);
    EXPECT_EQ(statistic.sigma(), 0);
}

TEST(Timeline, CountsEveryRoundOnceHoweverLongTheRun)
{
    Timeline timeline;
    const std::chrono::system_clock::time_point start(1000s);
    std::size_t rounds = 0;
    for (auto at = 0s; at < 24h; at += 7s, ++rounds) {
        timeline.add(start + at, at >= 12h);
    }

    EXPECT_EQ(timeline.start, start);
    EXPECT_EQ(timeline.width, 2048s);
    EXPECT_LE(timeline.intervals.size(), Timeline::kMost);
    std::size_t counted = 0;
    std::size_t failed = 0;
    for (const Timeline::Interval& each : timeline.intervals) {
        counted += each.rounds;
        failed += each.failed;
    }
    EXPECT_EQ(counted, rounds);
    EXPECT_EQ(failed, rounds / 2);
    EXPECT_EQ(timeline.intervals.front().failed, 0U);
    EXPECT_EQ(timeline.intervals[24].failed, timeline.intervals[24].rounds);
}

TEST(Timeline, ClockThatIsSetBackCountsAtTheStart)
{
    Timeline timeline;
    timeline.add(std::chrono::system_clock::time_point(1000s), false);
    timeline.add(std::chrono::system_clock::time_point(10s), true);

    EXPECT_THAT(timeline.intervals, ElementsAre(Timeline::Interval{2, 1}));
}

std::string written(void (*report)(const Run&, Groups, std::ostream&), const Run& run)
{
    std::ostringstream out;
    report(run, protocol::catalogue::groups(), out);
    return out.str();
}

/// A run of 20,000 rounds, 1000 of which failed.
const Run& longRun()
{
    static Soak soak;
    static const Run& run = []() -> const Run& {
        for (int i = 0; i < 20'000; ++i) {
            const bool good = i % 20 != 7;
            soak.round(good ? Verdict::kPass : Verdict::kFail, good ? 1 + i % 3 * 0.5 : 2.5);
        }
        return soak.end();
    }();
    return run;
}

TEST(RunFacts, FiguresOfALongRunSayWhichTriesAreShown)
{
    struct Row {
        std::size_t failed;
        std::size_t again;
        std::size_t skipped;
        const char* figures;
    };
    const Row rows[] = {
        {0, 0, 0, "1000 rounds, 0 failed. Shown: 1 try that passed."},
        {1, 0, 0, "1000 rounds, 1 failed. Shown: the one that failed and one that passed."},
        {44, 0, 0, "1000 rounds, 44 failed. Shown: all 44 that failed and one that passed."},
        {300, 0, 1,
         "1000 rounds, 300 failed. Shown: the first 200 of 300 that failed, one that was skipped and one that passed."},
        {0, 1, 0, "999 rounds, 0 failed, 1 tried again. Shown: the one that was tried again and one that passed."},
        {0, 3, 0, "997 rounds, 0 failed, 3 tried again. Shown: all 3 that were tried again and one that passed."},
        {1000, 0, 0, "1000 rounds, 1000 failed. Shown: the first 200 of 1000 that failed."},
    };
    for (const auto& [failed, again, skipped, figures] : rows) {
        Soak soak;
        for (std::size_t i = 0; i < 1000; ++i) {
            const bool bad = i < failed + again;
            soak.round(bad                            ? Verdict::kFail
                       : i < failed + again + skipped ? Verdict::kSkipped
                                                      : Verdict::kPass,
                       1, bad && i >= failed);
        }
        soak.end();

        EXPECT_EQ(roundsText(soak.group(), roundsOf(soak.group())), figures);
    }
}

TEST(RunFacts, EqualFailuresOfRoundsInARowAreOneFailure)
{
    Soak soak;
    for (int i = 1; i <= 3000; ++i) {
        soak.round((i >= 1471 && i <= 1514) || i == 1516 ? Verdict::kFail : Verdict::kPass, i % 3);
    }
    const record::Run& run = soak.end();
    const std::string text = textReport(run, protocol::catalogue::groups(), {});
    const std::string html = written(htmlReport, run);

    EXPECT_THAT(text, AllOf(HasSubstr("\nLoop / first (round 1471 of 3000): value: expected at most 2 V\n"),
                            HasSubstr("\n    main > Loop > tries 1471 to 1514 of 3000 (44)\n"
                                      "    value: expected at most 2 V\n"),
                            HasSubstr("\n    main > Loop > try 1516 of 3000\n")));
    EXPECT_THAT(text, Not(HasSubstr("main > Loop > try 1472")));
    EXPECT_THAT(html, AllOf(HasSubstr(">main › Loop › tries 1471 to 1514 of 3000 (44)<"),
                            HasSubstr(">main › Loop › try 1516 of 3000<")));
    std::size_t cards = 0;
    for (auto at = html.find("<article"); at != std::string::npos; at = html.find("<article", at + 1)) {
        ++cards;
    }
    EXPECT_EQ(cards, 2U);
}

TEST(RunFacts, FiguresOfTimesHaveThreeSignificantDigits)
{
    RepeatedMeasurement time{0, "Ask", "time", "ms", {}, 4, 0, {}};
    for (const double each : {0.258455, 24.5139, 1234.567, 100.0}) {
        time.numbers.add(each);
    }
    RepeatedMeasurement once{0, "Ask", "Ask", "V", {}, 1, 0, {}};
    once.numbers.add(12.34567);

    EXPECT_THAT(figuresOf(time), ElementsAre("Ask: time", "4", "0", "0.258 ms", "340 ms", "1235 ms", "598 ms"));
    EXPECT_THAT(figuresOf(once), ElementsAre("Ask", "1", "0", "12.3457 V", "12.3457 V", "12.3457 V", "0 V"));
    EXPECT_STREQ(kFigures.back(), "std. dev.");
}

TEST(RunFacts, ReportsOfALongRunAreShortAndSayWhatIsLeftOut)
{
    const record::Run& run = longRun();
    const std::string text = textReport(run, protocol::catalogue::groups(), {});
    const std::string html = written(htmlReport, run);
    const std::string junit = written(junitReport, run);

    EXPECT_THAT(text,
                AllOf(HasSubstr("1000 of 40000 steps went wrong."),
                      HasSubstr("20000 rounds, 1000 failed. Shown: the first 200 of 1000 that failed and one that "
                                "passed.\n"),
                      HasSubstr("first: value  20000  1000    1 V      1.5"), HasSubstr("try 3988 of 20000")));
    EXPECT_THAT(html, AllOf(HasSubstr("20000 rounds, 1000 failed."), HasSubstr("Failed rounds over time"),
                            HasSubstr("800 steps more went wrong; record.jsonl has them all.")));
    EXPECT_THAT(junit, AllOf(HasSubstr("20000 rounds, 1000 failed."), HasSubstr("first (try 3988)")));
    EXPECT_LT(html.size(), 1'500'000U);
    EXPECT_LT(junit.size(), 1'000'000U);
}

TEST(RunFacts, RecordOfALongRunComesBackFromJson)
{
    const record::Run& run = longRun();
    const auto groups = protocol::catalogue::groups();

    const record::Run read = parseRun(written(jsonReport, run));

    EXPECT_EQ(textReport(read, groups, {.allFrames = true}), textReport(run, groups, {.allFrames = true}));
    EXPECT_EQ(written(htmlReport, read), written(htmlReport, run));
}

}  // namespace
}  // namespace station::record
