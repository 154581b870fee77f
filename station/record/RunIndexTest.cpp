#include "station/record/RunIndex.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "protocol/catalogue/Catalogue.h"
#include "station/Sqlite.h"
#include "station/record/RecordJson.h"
#include "station/record/ResultsFolder.h"
#include "station/record/SampleRuns.h"
#include "tests/support/TempDir.h"

namespace station::record {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr Limits kLimits{440.0, 560.0, {}, {}};

std::string contentOf(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void replaceIn(const fs::path& path, const std::string& from, const std::string& to)
{
    std::string text = contentOf(path);
    ASSERT_NE(text.find(from), std::string::npos);
    text.replace(text.rfind(from), from.size(), to);
    std::ofstream(path, std::ios::binary) << text;
}

class RunIndexTest : public testing::Test
{
protected:
    void keep(const std::string& serial, std::chrono::seconds later, const std::vector<double>& values)
    {
        samples::write(samples::measured(serial, later, values, kLimits), directory_);
    }

    /// A reader for whom no record is fresh.
    RunIndex later() const
    {
        return RunIndex(directory_, [] { return std::chrono::system_clock::now() + 1h; });
    }

    /// @returns "SERIAL VERDICT" of each run; checks how many records were read for it.
    std::vector<std::string> listed(std::size_t reads) const
    {
        RunIndex index = later();
        std::vector<std::string> all;
        for (const ListedRun& each : index.list().runs) {
            all.push_back(each.serial + ' ' + name(each.verdict));
        }
        EXPECT_EQ(index.recordsRead(), reads);
        return all;
    }

    /// @returns the first number of each run, the oldest first; checks how many records were read for it.
    std::vector<double> measured(std::size_t reads) const
    {
        RunIndex index = later();
        const RunList list = index.list();
        std::vector<ListedRun> runs(list.runs.rbegin(), list.runs.rend());
        std::vector<std::string> broken;
        std::vector<double> numbers;
        index.figures(runs, nullptr, broken, [&numbers](const ListedRun&, const RunFigures& figures) {
            numbers.push_back(figures.series.at(0).first);
        });
        EXPECT_THAT(broken, IsEmpty());
        EXPECT_EQ(index.recordsRead(), reads);
        return numbers;
    }

    fs::path recordOf(int later) const { return directory_ / ("end-of-line-" + std::to_string(later)) / kRecordFile; }

    tests::TempDir temporary_;
    const fs::path directory_ = temporary_.path();
    const fs::path file_ = directory_ / RunIndex::kFile;
};

TEST_F(RunIndexTest, ReadsARecordOnce)
{
    keep("A", 0s, {500});
    keep("B", 1s, {600});

    EXPECT_THAT(listed(2), ElementsAre("B FAIL", "A PASS"));
    EXPECT_THAT(listed(0), ElementsAre("B FAIL", "A PASS"));
    EXPECT_THAT(measured(2), ElementsAre(500, 600));
    EXPECT_THAT(measured(0), ElementsAre(500, 600));
}

TEST_F(RunIndexTest, KeepsEveryFieldOfTheList)
{
    record::Run run = samples::measured("A", 7s, {600}, kLimits);
    run.line = {1, 2, 3, 4, 5};
    run.verifies = "bad";
    samples::write(run, directory_);

    const ListedRun read = later().list().runs.at(0);
    const ListedRun kept = later().list().runs.at(0);

    EXPECT_EQ(kept.folder, read.folder);
    EXPECT_EQ(kept.id, run.id);
    EXPECT_EQ(kept.started, run.started);
    EXPECT_EQ(kept.ended, run.ended);
    EXPECT_EQ(kept.reason, read.reason);
    EXPECT_EQ(kept.plan, run.plan.name);
    EXPECT_EQ(kept.planVersion, "7");
    EXPECT_EQ(kept.verifies, "bad");
    EXPECT_EQ(kept.port, run.unit.port);
    EXPECT_EQ(kept.station, run.station);
    EXPECT_EQ(kept.line, run.line);
    EXPECT_EQ(kept.failedStep, "Level 1");
    EXPECT_EQ(kept.failedSteps, 1U);
    EXPECT_FALSE(kept.running);
}

TEST_F(RunIndexTest, NoticesAddedChangedAndRemovedRuns)
{
    for (int i = 0; i < 4; ++i) {
        keep(std::string(1, static_cast<char>('A' + i)), std::chrono::seconds(i), {500.0 + i});
    }
    EXPECT_THAT(measured(8), SizeIs(4));

    keep("E", 4s, {504});
    fs::remove_all(directory_ / "end-of-line-1");
    fs::remove(recordOf(2));
    keep("D", 3s, {600});

    EXPECT_THAT(listed(2), ElementsAre("E PASS", "D FAIL", "A PASS"));
    EXPECT_THAT(measured(2), ElementsAre(500, 600, 504));
    EXPECT_THAT(later().list().passedOver, ElementsAre(directory_ / "end-of-line-2"));
}

TEST_F(RunIndexTest, NoticesAChangeOfEqualSizeAndTime)
{
    keep("A", 0s, {500});
    EXPECT_THAT(measured(2), ElementsAre(500));
    struct stat before {
    };
    ASSERT_EQ(::stat(recordOf(0).c_str(), &before), 0);

    replaceIn(recordOf(0), "\"value\":500", "\"value\":501");
    const timespec times[] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, recordOf(0).c_str(), times, 0), 0);

    EXPECT_THAT(measured(2), ElementsAre(501));
}

TEST_F(RunIndexTest, DoesNotKeepARecordThatChangedAMomentAgo)
{
    keep("A", 0s, {500});
    struct stat status {
    };
    ASSERT_EQ(::stat(recordOf(0).c_str(), &status), 0);
    const std::chrono::system_clock::time_point changed(std::chrono::seconds(status.st_ctim.tv_sec) +
                                                        std::chrono::nanoseconds(status.st_ctim.tv_nsec));

    EXPECT_EQ(RunIndex(directory_, [changed] { return changed + 50ms; }).list().runs.at(0).stamp, "");
    EXPECT_EQ(listed(1), (std::vector<std::string>{"A PASS"}));
    // The clock went back: the record is from the future.
    EXPECT_NE(RunIndex(directory_, [changed] { return changed - 24h; }).list().runs.at(0).stamp, "");
}

TEST_F(RunIndexTest, DoesNotMakeADatabaseWithoutRuns)
{
    fs::create_directories(directory_ / "notes");

    EXPECT_THAT(listed(0), IsEmpty());

    EXPECT_FALSE(fs::exists(file_));
}

TEST_F(RunIndexTest, ReadsARunThatGoesOnEachTime)
{
    record::Run run = samples::passed();
    ResultsFolder results(directory_, run, protocol::catalogue::groups());

    EXPECT_TRUE(later().list().runs.at(0).running);
    EXPECT_TRUE(later().list().runs.at(0).running);
    samples::tell(run, results);
    results.finish(run);
    EXPECT_FALSE(later().list().runs.at(0).running);
    EXPECT_EQ(later().list().runs.at(0).verdict, Verdict::kPass);
}

TEST_F(RunIndexTest, BrokenDatabaseIsMadeAgain)
{
    for (int i = 0; i < 40; ++i) {
        keep("A", std::chrono::seconds(i), {500.0 + i});
    }
    const auto expected = measured(80);
    const std::string sound = contentOf(file_);
    const auto put = [this](const std::string& content) {
        std::ofstream(file_, std::ios::binary | std::ios::trunc) << content;
    };

    put("no database");
    EXPECT_EQ(measured(80), expected);
    EXPECT_EQ(measured(0), expected);
    put("");
    EXPECT_EQ(measured(80), expected);
    put(sound.substr(0, sound.size() / 2));
    EXPECT_EQ(measured(80), expected);
    EXPECT_EQ(measured(0), expected);
    sqlite::Database(file_, SQLITE_OPEN_READWRITE, nullptr).runAll("PRAGMA user_version = 99");
    EXPECT_EQ(measured(80), expected);
    sqlite::Database(file_, SQLITE_OPEN_READWRITE, nullptr).runAll("DROP TABLE figures");
    EXPECT_EQ(measured(40), expected);
}

TEST_F(RunIndexTest, NoChangedByteOfTheDatabaseChangesAResult)
{
    for (int i = 0; i < 8; ++i) {
        keep("A", std::chrono::seconds(i), {500.0 + i});
    }
    const auto measuredNow = [this] {
        RunIndex index = later();
        const RunList list = index.list();
        std::vector<std::string> texts;
        for (const ListedRun& each : list.runs) {
            texts.push_back(each.id + each.serial + name(each.verdict) + each.reason);
        }
        std::vector<std::string> broken;
        index.figures(list.runs, nullptr, broken, [&texts](const ListedRun&, const RunFigures& figures) {
            texts.push_back(packSeries(figures) + pack(*figures.keys));
        });
        return texts;
    };
    const auto expected = measuredNow();
    const std::string sound = contentOf(file_);

    for (std::size_t at = 0; at < sound.size(); at += 61) {
        std::string broken = sound;
        broken[at] = static_cast<char>(broken[at] ^ 0x24);
        std::ofstream(file_, std::ios::binary | std::ios::trunc) << broken;

        EXPECT_EQ(measuredNow(), expected) << "byte " << at;
    }
}

TEST_F(RunIndexTest, SeveralReadersAtOnceSeeTheSame)
{
    for (int i = 0; i < 60; ++i) {
        keep("A", std::chrono::seconds(i), {500.0 + i});
    }
    std::vector<std::vector<double>> seen(4);
    {
        std::vector<std::jthread> readers;
        for (auto& each : seen) {
            readers.emplace_back([this, &each] {
                for (int i = 0; i < 3; ++i) {
                    RunIndex index = later();
                    const RunList list = index.list();
                    std::vector<std::string> broken;
                    each.clear();
                    index.figures(list.runs, nullptr, broken, [&each](const ListedRun&, const RunFigures& figures) {
                        each.push_back(figures.series.at(0).first);
                    });
                }
            });
        }
    }

    for (const auto& each : seen) {
        EXPECT_EQ(each, seen.front());
        EXPECT_THAT(each, SizeIs(60));
    }
    EXPECT_THAT(measured(0), SizeIs(60));
}

TEST_F(RunIndexTest, DoesWithoutADatabaseThatAnotherProgramHolds)
{
    keep("A", 0s, {500});
    EXPECT_THAT(measured(2), SizeIs(1));
    sqlite::Database other(file_, SQLITE_OPEN_READWRITE, nullptr);
    other.runAll("BEGIN EXCLUSIVE");

    EXPECT_THAT(measured(2), ElementsAre(500));

    other.runAll("COMMIT");
    EXPECT_THAT(measured(0), ElementsAre(500));
}

TEST_F(RunIndexTest, InterruptionKeepsWhatWasRead)
{
    for (int i = 0; i < 3; ++i) {
        keep("A", std::chrono::seconds(i), {500.0 + i});
    }
    Interrupt interrupt;
    interrupt.request();
    RunIndex index = later();
    const RunList list = index.list();
    std::vector<std::string> broken;

    EXPECT_THROW(index.figures(list.runs, &interrupt, broken, [](const ListedRun&, const RunFigures&) {}), Interrupted);

    EXPECT_THAT(measured(3), SizeIs(3));
}

// What a record contributes.

class RunFiguresTest : public testing::Test
{
protected:
    RunFigures figuresOf(const record::Run& run) const
    {
        samples::write(run, temporary_.path());
        return readFigures(temporary_.path() / run.id / kRecordFile, nullptr);
    }

    static std::vector<std::string> namesOf(const RunFigures& figures)
    {
        std::vector<std::string> names;
        for (const MeasurementKey& each : *figures.keys) {
            names.push_back(each.group + " / " + each.step + ": " + each.name);
        }
        return names;
    }

    tests::TempDir temporary_;
};

TEST_F(RunFiguresTest, ReplacedTriesAndAttemptsDoNotCount)
{
    record::Run run = samples::measured("A", 0s, {500}, kLimits);
    Group& group = run.phases[record::Run::kMain].groups[0];
    Group::Try again = group.tries[0];
    group.tries[0].superseded = true;
    again.steps[0].attempts.push_front(again.steps[0].attempts[0]);
    again.steps[0].attempts[0].superseded = true;
    again.steps[0].attempts[0].measurements[0].value = 700.0;
    again.steps[0].attempts[1].measurements[0].value = 510.0;
    group.tries.push_back(again);

    const RunFigures figures = figuresOf(run);

    ASSERT_THAT(figures.series, SizeIs(1));
    EXPECT_EQ(figures.series[0].numbers.count, 1U);
    EXPECT_EQ(figures.series[0].first, 510);
}

TEST_F(RunFiguresTest, NamesTheFirstStepThatFailedAndCounts)
{
    record::Run run = samples::measured("A", 0s, {500, 900, 900}, kLimits);
    EXPECT_EQ(figuresOf(run).failedGroup, "levels");
    EXPECT_EQ(figuresOf(run).failedStep, "Level 2");

    run.id = "passed";
    Group& group = run.phases[record::Run::kMain].groups[0];
    group.tries.push_back(
        samples::measured("A", 0s, {500, 500, 500}, kLimits).phases[record::Run::kMain].groups[0].tries[0]);
    group.tries[0].superseded = true;
    EXPECT_EQ(figuresOf(run).failedStep, "");
}

TEST_F(RunFiguresTest, CodesAndTextsAreNoMeasurements)
{
    record::Run run = samples::measured("A", 0s, {500, 3, 4, 5}, kLimits);
    auto& steps = run.phases[record::Run::kMain].groups[0].tries[0].steps;
    steps[1].attempts[0].measurements[0] = {"mode", 1.0, "", {.equals = Scalar(1.0)}, true};
    steps[2].attempts[0].measurements[0] = {"level", std::string("*****"), "mV", {}, true};
    steps[3].attempts[0].measurements[0].value = std::numeric_limits<double>::quiet_NaN();

    EXPECT_THAT(namesOf(figuresOf(run)), ElementsAre("levels / Level 1: level"));
}

TEST_F(RunFiguresTest, StepsOfOneNameAreToldApart)
{
    record::Run run = samples::measured("A", 0s, {500, 510}, kLimits);
    for (Step& each : run.phases[record::Run::kMain].groups[0].tries[0].steps) {
        each.name = "Level";
    }

    EXPECT_THAT(namesOf(figuresOf(run)), ElementsAre("levels / Level: level", "levels / Level (2): level"));
}

TEST_F(RunFiguresTest, BothSchemasGiveTheSame)
{
    record::Run run = samples::failed();
    ResultsFolder results(temporary_.path(), run, protocol::catalogue::groups());
    samples::tell(run, results);
    results.finish(run);

    const RunFigures lines = readFigures(results.folder() / kRecordFile, nullptr);
    const RunFigures whole = readFigures(results.folder() / kWholeRecordFile, nullptr);

    EXPECT_THAT(*lines.keys, testing::Not(IsEmpty()));
    EXPECT_EQ(*lines.keys, *whole.keys);
    EXPECT_EQ(lines.series, whole.series);
    EXPECT_EQ(lines.failedStep, "Frequency after the seek");
    EXPECT_EQ(whole.failedStep, lines.failedStep);
}

TEST_F(RunFiguresTest, ATornRecordGivesWhatItHas)
{
    const record::Run run = samples::measured("A", 0s, {500, 510, 520}, kLimits);
    samples::write(run, temporary_.path());
    const fs::path record = temporary_.path() / run.id / kRecordFile;
    const std::string text = contentOf(record);
    std::ofstream(record) << text.substr(0, text.find("\"Level 3\""));

    EXPECT_THAT(readFigures(record, nullptr).series, SizeIs(2));
}

TEST_F(RunFiguresTest, ALateAnswerReplacesTheNumber)
{
    const record::Run run = samples::measured("A", 0s, {500, 510}, kLimits);
    samples::write(run, temporary_.path());
    Step late = run.phases[record::Run::kMain].groups[0].tries[0].steps[0];
    late.attempts[0].measurements[0].value = 520.0;
    const fs::path record = temporary_.path() / run.id / kRecordFile;
    std::ofstream(record, std::ios::app) << toLine(lines::step("amended", "", {"main", "levels", 1, 0}, late));

    EXPECT_EQ(readFigures(record, nullptr).series[0].first, 520);
}

TEST_F(RunFiguresTest, AllRoundsOfALongRunCountInOneSeries)
{
    constexpr std::size_t kRounds = 3'000;
    const record::Run run = samples::measured("A", 0s, {500}, kLimits);
    const fs::path record = temporary_.path() / kRecordFile;
    {
        std::ofstream out(record);
        out << toLine(lines::started(run)) << toLine(lines::group("main", "levels"));
        Step step = run.phases[record::Run::kMain].groups[0].tries[0].steps[0];
        for (std::size_t i = 1; i <= kRounds; ++i) {
            step.attempts[0].measurements[0].value = 500.0 + static_cast<double>(i % 10);
            out << toLine(lines::step("step", "", {"main", "levels", i, 0}, step));
        }
    }

    const RunFigures figures = readFigures(record, nullptr);

    ASSERT_THAT(figures.series, SizeIs(1));
    EXPECT_EQ(figures.series[0].numbers.count, kRounds);
    EXPECT_NEAR(figures.series[0].numbers.mean, 504.5, 1e-9);
    EXPECT_THAT(figures.series[0].histogram.bins(), SizeIs(10));
    EXPECT_EQ(unpackSeries(packSeries(figures), figures.keys).series, figures.series);
}

TEST_F(RunFiguresTest, PackedFiguresOfAnyOtherBytesAreAMismatch)
{
    const RunFigures figures = figuresOf(samples::measured("A", 0s, {500, 510}, kLimits));
    const std::string bytes = packSeries(figures);
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        EXPECT_THROW(unpackSeries(std::string_view(bytes).substr(0, size), figures.keys), Unpacker::Mismatch);
    }
}

}  // namespace
}  // namespace station::record
