#include "station/plan/PlanRuns.h"

#include <filesystem>
#include <fstream>
#include <latch>
#include <sstream>

#include "station/plan/RunnerTest.h"
#include "station/record/RecordJson.h"
#include "station/record/Reports.h"
#include "tests/support/TempDir.h"

namespace station::plan::tests {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace fs = std::filesystem;

/// Two units with one serial number. The second tells it after the run of the first has ended.
class PlanRunsTest : public RunnerTest
{
protected:
    PlanRunsTest()
    {
        request.ports = {{unit.path()}, {other_.path()}};
        request.results = results_.path() / "results";
        request.reconnect = 0ms;
        on[0x0A14] = [this](const Frame&) { reply(0x8A, 0x14, {'H', 'U', '7'}); };
    }

    Conclusion runAll(
        const Plan& plan, const PlanRuns::OnEnded& onEnded = [](const std::string&) {})
    {
        return runAll(plan, observer, onEnded);
    }

    Conclusion runAll(
        const Plan& plan, Observer& view, const PlanRuns::OnEnded& onEnded = [](const std::string&) {})
    {
        unit.start();
        other_.start();
        const Surroundings surroundings{protocol::catalogue::groups(), prompter, headUnit, serialRecord, serials};
        PlanRuns runs(
            plan, request, surroundings, [&view](const std::string&) -> Observer& { return view; },
            [&](const std::string& port) {
                onEnded(port);
                if (port == unit.path()) {
                    firstEnded_.count_down();
                }
            });
        Conclusion conclusion = runs.conclude();
        unit.stop();
        other_.stop();
        return conclusion;
    }

    std::string otherPath() const { return other_.path(); }

    RunRequest request;

private:
    const ::tests::TempDir results_;
    std::latch firstEnded_{1};
    ScriptedUnit other_{[this](const Frame& frame) {
        if (frame.cmdOne == 0x0A) {
            firstEnded_.wait();
            other_.write(wireBytes(Frame{0x8A, 0x14, {'H', 'U', '7'}}));
        }
    }};
};

constexpr const char* kReadSerial = "[[main]]\nname = \"G\"\nsteps = [{ send = \"identity.hu-serial\" }]\n";

TEST_F(PlanRunsTest, UnitsWithOneSerialNumberAreBothInErrorInEveryFile)
{
    const Conclusion conclusion = runAll(planOf(kReadSerial));

    EXPECT_EQ(conclusion.status, protocol::kError);
    ASSERT_THAT(conclusion.units, SizeIs(2));
    for (const UnitResult& each : conclusion.units) {
        EXPECT_EQ(verdictOf(each.result.run), Verdict::kError);
        for (const char* name : {"record.json", "junit.xml", "report.html"}) {
            std::ifstream file(fs::path(each.folder) / name);
            EXPECT_THAT(std::string(std::istreambuf_iterator<char>(file), {}), HasSubstr("the same serial"))
                << each.folder << name;
        }
    }
}

TEST_F(PlanRunsTest, RecordOfALongRunHasEveryStepAndItsReportsTheFigures)
{
    constexpr int kRounds = 300;
    int asked = 0;
    on[0x0FFF] = [&](const Frame&) { reply(0x8F, 0xFF, {static_cast<std::uint8_t>(++asked % 100 == 0 ? 0 : 1)}); };
    request.ports.pop_back();
    const Plan plan = planOf(
        "[[main]]\nname = \"Loop\"\nrepeat = 300\nsteps = [{ send = \"test.mode\", expect = { mode = \"on\" } }]\n"
        "[[main]]\nname = \"Again\"\nretries = 1\nsteps = [{ send = \"test.mode\", expect = { mode = \"off\" } }]\n");

    const Conclusion conclusion = runAll(plan);

    const auto groups = protocol::catalogue::groups();
    ASSERT_THAT(conclusion.units, SizeIs(1));
    const record::Run& run = conclusion.units[0].result.run;
    const fs::path folder = conclusion.units[0].folder;
    EXPECT_THAT(run.phases[1].groups[0].tries, SizeIs(4));
    EXPECT_EQ(outcomeOf(run).tally, (record::Tally{{Verdict::kPass, 297}, {Verdict::kFail, 4}}));
    // Three failed rounds, one that passed, and two tries of the other group.
    EXPECT_THAT(run.events.kept(), SizeIs(2 * (3 + 1 + 2)));
    const record::Run read = record::readRun(folder / "record.jsonl");
    EXPECT_EQ(textReport(read, groups, {.allFrames = true}), textReport(run, groups, {.allFrames = true}));
    const record::Run whole = record::readRun(folder / "record.json");
    EXPECT_THAT(whole.phases[1].groups[0].tries, SizeIs(kRounds));
    EXPECT_EQ(roundsOf(whole.phases[1].groups[0]), run.phases[1].groups[0].rounds);
    EXPECT_THAT(whole.events.kept(), SizeIs(2 * (kRounds + 2)));
    std::ostringstream csv;
    record::csvReport(read, folder / "record.jsonl", csv);
    std::ostringstream csvOfWhole;
    record::csvReport(whole, groups, csvOfWhole);
    EXPECT_EQ(csv.str(), csvOfWhole.str());
}

TEST_F(PlanRunsTest, AttemptThatChangesWhileItsStepGoesOnLeavesARecordThatCanBeRead)
{
    int asked = 0;
    on[0x0201] = [&](const Frame&) {
        if (++asked == 2) {
            reply(0x82, 0x01, {0x22, 0x2E});
            reply(0x82, 0x01, {0x22, 0x2E});
        }
    };
    on[0x0FFF] = [&](const Frame&) { reply(0x8F, 0xFF, {1}); };
    request.ports.pop_back();

    const Conclusion conclusion =
        runAll(planOf("[[main]]\nname = \"G\"\nsteps = [{ send = \"tuner.frequency\", timeout = 0.05, retries = 1, "
                      "retry_delay = 0 }, { send = \"test.mode\" }]\n"));

    EXPECT_EQ(conclusion.status, protocol::kPassed);
    EXPECT_THAT(conclusion.complaints, IsEmpty());
    const fs::path folder = conclusion.units.at(0).folder;
    EXPECT_EQ(record::readRun(folder / "record.json").phases[1].groups[0].tries[0].steps[0].attempts.size(), 2U);
    std::ifstream lines(folder / "record.jsonl");
    EXPECT_THAT(std::string(std::istreambuf_iterator<char>(lines), {}), testing::Not(HasSubstr("amended")));
}

/// Notes what comes behind the last step.
struct EndObserver : Observer {
    std::vector<std::string> seen;

    void onStepEnded(const StepPlace&, const record::Step&) override { seen.emplace_back("step"); }
    void onWriting() override { seen.emplace_back("writing"); }
    void onEnded(const record::Run&) override { seen.emplace_back("ended"); }
};

TEST_F(PlanRunsTest, ReportsAreAnnouncedBetweenTheLastStepAndTheEnd)
{
    request.ports.pop_back();
    EndObserver view;

    runAll(planOf(kReadSerial), view);

    EXPECT_THAT(view.seen, ElementsAre("step", "writing", "ended"));
}

TEST_F(PlanRunsTest, EveryRunReportsItsEnd)
{
    std::mutex mutex;
    std::vector<std::string> ended;

    runAll(planOf(kReadSerial), [&](const std::string& port) {
        const std::lock_guard lock(mutex);
        ended.push_back(port);
    });

    EXPECT_THAT(ended, testing::UnorderedElementsAre(unit.path(), otherPath()));
}

TEST_F(PlanRunsTest, SeveralUnitsComplainOnceAboutResultsThatCannotBeWritten)
{
    request.results = "/dev/null/results";

    const Conclusion conclusion = runAll(planOf(kReadSerial));

    EXPECT_EQ(conclusion.status, protocol::kNotRecorded);
    EXPECT_THAT(conclusion.units, IsEmpty());
    EXPECT_THAT(conclusion.complaints, ElementsAre("/dev/null/results: cannot be made: Not a directory"));
}

TEST_F(PlanRunsTest, WithoutResultsNoRecordIsKept)
{
    request.results.clear();
    request.ports.pop_back();
    EndObserver view;

    const Conclusion conclusion = runAll(planOf(kReadSerial), view);

    EXPECT_THAT(view.seen, ElementsAre("step", "ended"));

    EXPECT_EQ(conclusion.status, protocol::kPassed);
    EXPECT_EQ(conclusion.units.at(0).folder, "");
    EXPECT_THAT(conclusion.complaints, IsEmpty());
}

TEST_F(PlanRunsTest, MissingPortIsAComplaintAndComesBeforeRecordsThatCannotBeBegun)
{
    request.ports = {{"/dev/no-such-line"}};

    const Conclusion conclusion = runAll(planOf(kReadSerial));

    EXPECT_EQ(conclusion.status, protocol::kPortUnavailable);
    EXPECT_THAT(conclusion.complaints,
                ElementsAre(testing::MatchesRegex("/dev/no-such-line: .*; 'engineering-station ports' lists .*")));
    ASSERT_THAT(conclusion.units, testing::SizeIs(1));
    EXPECT_THAT(summary(conclusion.units[0], false, false), HasSubstr("; 'engineering-station ports' lists "));
    EXPECT_THAT(headlineOf(conclusion.units[0].result.run).reason, testing::Not(HasSubstr("'engineering-station")));
}

/// @returns the text of the error, "" for a plan that may run.
std::string refusal(const Plan& plan, const RunRequest& request)
{
    try {
        expectRunnable(plan, request);
        return "";
    } catch (const protocol::UserError& error) {
        return error.what();
    }
}

TEST_F(PlanRunsTest, DestructivePlanNeedsConsent)
{
    const Plan plan = planOf("[[main]]\nname = \"End\"\nsteps = [{ send = \"car.shut-down\" }]\n");

    EXPECT_EQ(refusal(plan, request), "test.toml:6: expected --yes, because 'car.shut-down' cannot be undone");
    request.destructive = true;
    EXPECT_EQ(refusal(plan, request), "");
}

TEST_F(PlanRunsTest, PortIsNotGivenTwice)
{
    request.ports = {{"/a"}, {"/b"}, {"/a"}};

    EXPECT_EQ(refusal(planOf(kReadSerial), request), "--port: expected each unit once, got /a twice");
}

TEST_F(PlanRunsTest, SerialNumberIsNotGivenToSeveralUnits)
{
    request.known.unit.serial = "A";

    EXPECT_THAT(refusal(planOf(kReadSerial), request), HasSubstr("--serial: expected one unit"));
    request.ports.pop_back();
    EXPECT_EQ(refusal(planOf(kReadSerial), request), "");
}

}  // namespace
}  // namespace station::plan::tests
