#include "station/plan/LimitProof.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "protocol/catalogue/Catalogue.h"
#include "station/plan/Load.h"
#include "station/record/RecordJson.h"
#include "station/record/ResultsFolder.h"
#include "tests/support/TempDir.h"

namespace station::plan {
namespace {

using testing::ElementsAre;

constexpr const char* kPlan = R"(schema = 1
name = "proof"
title = "Proof"
[[setup]]
name = "Before"
steps = [{ send = "test.mode", max_time = "50ms" }]
[[main]]
name = "Frames"
steps = [
  { send = "tuner.frequency", expect = { frequency = { min = 87.4, max = 87.6, unit = "MHz" } } },
  { send = "audio.volume", poll = { until = { volume = { max = 9 } } } },
  { send = "gps.satellites", expect = { satellites = { count = { min = 4 } } } },
  { send = "gps.satellites", expect = { satellites = { all = { signal = { min = 30 } } }, count = 3 } },
  { send = "media.track-1", expect_later = { index = { min = 1 } } },
  { wait = "keys.pressed", expect = { key = { min = 1 } } },
  { prompt = "Voltage?", id = "voltage", answer = "number", expect = { min = 13, unit = "V" } },
  { prompt = "Lit?", id = "lit" },
  { pause = 1 },
]
)";

/// A plan, and runs of it with good and bad units.
class LimitProofTest : public testing::Test
{
protected:
    LimitProofTest()
    {
        Loaded loaded = load(kPlan, "proof.toml", protocol::catalogue::groups());
        plan_ = std::move(loaded.plan.value());
        proofs_.limits = limitsOf(plan_);
    }

    /// @returns a run that has measured the volume, whose limit is 9, once per attempt.
    static record::Run volumes(const char* verifies, const std::vector<double>& values)
    {
        record::Run run;
        run.id = std::string("run-") + verifies;
        run.verifies = verifies;
        run.phases = {{"setup", {}, {}}, {"main", {}, {}}, {"teardown", {}, {}}};
        record::Group& group = run.phases[1].groups.emplace_back();
        auto& steps = group.tries.emplace_back().steps;
        steps.resize(2);
        for (const double value : values) {
            record::Attempt& attempt = steps[1].attempts.emplace_back();
            attempt.measurements = {{"volume", value, "", {.maximum = 9.0}, value <= 9}};
        }
        return run;
    }

    const LimitProof& volume() const { return proofs_.limits.at(3); }

    Plan plan_;
    LimitProofs proofs_;
};

TEST_F(LimitProofTest, EveryMinAndMaxOfThePlanIsALimit)
{
    std::vector<std::string> texts;
    for (const LimitProof& each : proofs_.limits) {
        texts.push_back(each.phase + " " + each.step + " " + each.measurement + (each.isMaximum ? " <= " : " >= ") +
                        (each.limit ? nlohmann::json(*each.limit).dump() : "all") + " " + each.unit);
        EXPECT_FALSE(each.proven());
        EXPECT_EQ(each.lacks(), "no unit has been measured");
    }
    EXPECT_THAT(texts,
                ElementsAre("setup test.mode latency <= 50.0 ms", "main tuner.frequency frequency >= 87.4 MHz on FM",
                            "main tuner.frequency frequency <= 87.6 MHz on FM", "main audio.volume volume <= 9.0 ",
                            "main gps.satellites satellites >= 4.0 ", "main gps.satellites satellites >= all ",
                            "main media.track-1 index >= 1.0 ", "main keys.pressed key >= 1.0 ",
                            "main voltage voltage >= 13.0 V"));
}

TEST_F(LimitProofTest, GoodUnitPassesAndBadUnitFails)
{
    addEvidence(proofs_, plan_, volumes("good", {9}));
    EXPECT_EQ(volume().lacks(), "no bad unit has failed it");

    addEvidence(proofs_, plan_, volumes("bad", {9}));
    EXPECT_EQ(volume().lacks(), "no bad unit has failed it");

    addEvidence(proofs_, plan_, volumes("bad", {10}));
    EXPECT_TRUE(volume().proven());
    EXPECT_EQ(volume().goodPassed->value, 9);
    EXPECT_EQ(volume().badFailed->value, 10);
    EXPECT_EQ(volume().badFailed->run, "run-bad");
    EXPECT_EQ(proofs_.proven(), 1U);
    EXPECT_EQ(proofs_.goodRuns, 1U);
    EXPECT_EQ(proofs_.badRuns, 2U);
}

TEST_F(LimitProofTest, GoodUnitThatFailsIsAFindingWhateverOthersPass)
{
    addEvidence(proofs_, plan_, volumes("bad", {10}));
    EXPECT_EQ(volume().lacks(), "no good unit has passed it");

    addEvidence(proofs_, plan_, volumes("good", {11}));
    addEvidence(proofs_, plan_, volumes("good", {5}));
    EXPECT_FALSE(volume().proven());
    EXPECT_EQ(volume().lacks(), "a good unit fails it with 11 in run-good");
}

TEST_F(LimitProofTest, SupersededAttemptsTriesAndTextsAreNoEvidence)
{
    record::Run run = volumes("good", {11, 5});
    run.phases[1].groups[0].tries[0].steps[1].attempts[0].superseded = true;
    auto again = run.phases[1].groups[0].tries[0];
    again.superseded = true;
    again.steps[1].attempts[1].measurements[0].value = 12.0;
    run.phases[1].groups[0].tries.push_back(again);
    addEvidence(proofs_, plan_, run);
    EXPECT_EQ(volume().lacks(), "no bad unit has failed it");

    record::Run missing = volumes("bad", {10});
    missing.phases[1].groups[0].tries[0].steps[1].attempts[0].measurements[0].value = std::string();
    addEvidence(proofs_, plan_, missing);
    EXPECT_EQ(volume().lacks(), "no bad unit has failed it");
}

TEST_F(LimitProofTest, RunWithAnotherLimitIsNoEvidence)
{
    record::Run run = volumes("good", {5});
    run.phases[1].groups[0].tries[0].steps[1].attempts[0].measurements[0].limits.maximum = 8;
    addEvidence(proofs_, plan_, run);
    EXPECT_EQ(volume().lacks(), "no unit has been measured");
}

TEST_F(LimitProofTest, ComputedLimitsOfAMeasurementAreLimitsOfTheirOwn)
{
    auto& until = std::get<Send>(plan_.main.at(0).steps.at(1).action).poll->until;
    for (const char* formula : {"${a}", "${b}", "${b}"}) {
        Expected& expected = until.emplace_back();
        expected.name = "volume";
        expected.maximumOf.emplace().text = formula;
    }
    const std::vector<LimitProof> before = proofs_.limits;
    proofs_.limits = limitsOf(plan_);
    ASSERT_EQ(proofs_.limits.size(), before.size() + 2);
    EXPECT_EQ(proofs_.limits[4].computed, "${a}");
    EXPECT_EQ(proofs_.limits[5].computed, "${b}");

    addEvidence(proofs_, plan_, volumes("good", {5}));
    EXPECT_EQ(volume().lacks(), "no bad unit has failed it");
    EXPECT_EQ(proofs_.limits[4].lacks(), "no unit has been measured");

    record::Run run = volumes("good", {5});
    run.phases[1].groups[0].tries[0].steps[1].attempts[0].measurements[0].limits.maximum = 8;
    addEvidence(proofs_, plan_, run);
    EXPECT_EQ(proofs_.limits[4].lacks(), "no bad unit has failed it");
    EXPECT_EQ(proofs_.limits[4].limit, 8);
}

TEST_F(LimitProofTest, ExitStatusIsThatOfARunThatMeasuresNothing)
{
    using protocol::ExitStatus;
    using enum ExitStatus;
    proofs_.limits.clear();
    const auto after = [this](const char* verifies, ExitStatus ofRun) {
        return exitStatusOf(proofs_, verifies, ofRun);
    };
    EXPECT_EQ(after("good", kPassed), kPassed);
    EXPECT_EQ(after("good", kFailed), kFailed);
    EXPECT_EQ(after("bad", kPassed), kPassed);
    EXPECT_EQ(after("bad", kFailed), kPassed);
    for (const ExitStatus other : {kNoAnswer, kInterrupted, kNothingRun, kError, kNotRecorded, kPortUnavailable}) {
        EXPECT_EQ(after("good", other), other);
        EXPECT_EQ(after("bad", other), other);
    }
    proofs_.limits.emplace_back();
    EXPECT_EQ(after("good", kPassed), kFailed);
    EXPECT_EQ(after("bad", kFailed), kFailed);
}

TEST_F(LimitProofTest, RecordThatEndsEarlyIsNoEvidence)
{
    record::Run run = volumes("good", {5});
    run.phases.resize(1);
    addEvidence(proofs_, plan_, run);
    EXPECT_EQ(volume().lacks(), "no unit has been measured");
}

TEST_F(LimitProofTest, TextListsWhatIsNotProven)
{
    proofs_.limits.erase(proofs_.limits.begin() + 6, proofs_.limits.end());
    proofs_.limits.erase(proofs_.limits.begin() + 4);
    proofs_.limits.erase(proofs_.limits.begin());
    proofs_.goodRuns = 1;
    EXPECT_EQ(toText(proofs_),
              "LIMITS  0 of 4 proven by 1 run of good units and 0 runs of bad ones\n"
              "        Frames / tuner.frequency: frequency at least 87.4 MHz on FM: no unit has been measured\n"
              "        Frames / tuner.frequency: frequency at most 87.6 MHz on FM: no unit has been measured\n"
              "        Frames / audio.volume: volume at most 9: no unit has been measured\n"
              "        Frames / gps.satellites: all satellites: no unit has been measured\n");
    const auto json = limitsEvent(proofs_);
    EXPECT_EQ(json["event"], "limits");
    EXPECT_EQ(json["limits"][2].dump(),
              R"({"phase":"main","group":"Frames","step":"audio.volume","measurement":"volume","limit":"maximum",)"
              R"("value":9.0,"unit":"","good_passed":null,"good_failed":null,"bad_failed":null,"proven":false})");
}

TEST_F(LimitProofTest, OnlyFinishedRunsOfThisStateOfThePlanThatProveLimitsCount)
{
    const tests::TempDir directory;
    const auto write = [&](const char* folder, const char* verifies, const char* sha256, double value) {
        record::Run run = volumes(verifies, {value});
        run.plan.sha256 = sha256;
        run.plan.name = "proof";
        const auto path = directory.path() / folder;
        std::filesystem::create_directory(path);
        std::ofstream out(path / record::kRecordFile);
        out << record::toLine(record::lines::started(run));
        const auto& group = run.phases[1].groups[0];
        out << record::toLine(record::lines::group("main", "Frames"));
        for (std::size_t i = 0; i < 2; ++i) {
            out << record::toLine(
                record::lines::step("step", "port", {"main", "Frames", 1, i, 9}, group.tries[0].steps[i]));
        }
        out << record::toLine(record::lines::ended(run));
    };
    EXPECT_EQ(proveLimits(plan_, "1", directory.path() / "none").goodRuns, 0U);
    EXPECT_THAT(proveLimits(plan_, "1", directory.path() / "none").broken, testing::IsEmpty());
    write("proof-2", "good", "1", 5);
    write("proof-3", "", "1", 10);
    write("proof-4", "bad", "2", 10);
    write("proof-5.running", "bad", "1", 10);
    write("other-6", "bad", "1", 10);
    std::filesystem::create_directory(directory.path() / "proof-7");
    std::ofstream(directory.path() / "proof-8");
    std::filesystem::create_directory(directory.path() / "proof-9.pipe");
    ASSERT_EQ(mkfifo((directory.path() / "proof-9.pipe" / record::kRecordFile).c_str(), 0600), 0);
    std::filesystem::create_directory(directory.path() / "proof-9.zeros");
    std::ofstream(directory.path() / "proof-9.zeros" / record::kRecordFile) << std::string(100'000, '\0');

    const auto writeLine = [&](const char* folder, const char* line) {
        std::filesystem::create_directory(directory.path() / folder);
        std::ofstream(directory.path() / folder / record::kRecordFile) << line << '\n';
    };
    writeLine("proof-0.number", R"({"event":"started","verify_limits":"good","plan_sha256":1})");
    writeLine("proof-0.none", R"({"event":"started","verify_limits":"good"})");
    writeLine("proof-0.list", R"(["verify_limits"])");
    writeLine("proof-0.broken", R"({"event":"started","verify_limits":"good","plan_sha256":"1"})");

    LimitProofs found = proveLimits(plan_, "1", directory.path());
    EXPECT_THAT(found.broken, ElementsAre(testing::HasSubstr("proof-0.broken")));
    EXPECT_EQ(limitsEvent(found)["broken"].size(), 1U);
    EXPECT_EQ(found.goodRuns, 1U);
    EXPECT_EQ(found.badRuns, 0U);
    EXPECT_EQ(found.limits.at(3).lacks(), "no bad unit has failed it");

    write("proof-9", "bad", "1", 12);
    found = proveLimits(plan_, "1", directory.path());
    EXPECT_EQ(found.limits.at(3).lacks(), "");
    EXPECT_EQ(found.limits[3].badFailed->value, 12);

    const auto file = directory.path() / "proof-0.broken" / record::kRecordFile;
    EXPECT_THAT(proveLimits(plan_, "1", file).broken, ElementsAre(testing::StartsWith(file.string() + ": ")));
}

}  // namespace
}  // namespace station::plan
