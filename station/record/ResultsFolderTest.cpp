#include "station/record/ResultsFolder.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "protocol/catalogue/Catalogue.h"
#include "station/record/Outcome.h"
#include "station/record/RecordJson.h"
#include "station/record/SampleRuns.h"
#include "station/record/StoredFile.h"
#include "station/trace/PcapngReader.h"
#include "tests/engine/FileSizeLimit.h"
#include "tests/support/TempDir.h"

namespace station::record {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

std::string content(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> namesIn(const fs::path& directory)
{
    std::vector<std::string> names;
    for (const auto& each : fs::directory_iterator(directory)) {
        names.push_back(each.path().filename().string());
    }
    std::ranges::sort(names);
    return names;
}

class ResultsFolderTest : public testing::Test
{
protected:
    ResultsFolder begin(record::Run& run) { return ResultsFolder(directory_, run, protocol::catalogue::groups()); }

    tests::TempDir temporary_;
    const fs::path directory_ = temporary_.path() / "plant" / "results";
};

TEST_F(ResultsFolderTest, IsCalledRunningAndHoldsAnAbortedRecordFromTheStart)
{
    record::Run run = samples::withoutSteps();

    const ResultsFolder results = begin(run);

    EXPECT_THAT(namesIn(directory_), ElementsAre("end-of-line-20261121-140508.123-ttyUSB0.running"));
    EXPECT_THAT(namesIn(results.folder()), ElementsAre("record.json"));
    const record::Run read = readRun(results.folder() / "record.json");
    EXPECT_EQ(verdictOf(read), Verdict::kAborted);
    EXPECT_EQ(headlineOf(read).reason, "the run did not end: the station was stopped or lost its power");
    EXPECT_EQ(read.ended, std::chrono::system_clock::time_point{});
}

TEST_F(ResultsFolderTest, KeepsWhatWasSavedAndStillSaysAborted)
{
    record::Run run = samples::withoutSteps();
    ResultsFolder results = begin(run);

    results.save(samples::passed());

    const record::Run read = readRun(results.folder() / "record.json");
    EXPECT_EQ(verdictOf(read), Verdict::kAborted);
    EXPECT_EQ(read.phases, samples::passed().phases);
    EXPECT_THAT(namesIn(results.folder()), ElementsAre("record.json"));
}

TEST_F(ResultsFolderTest, HoldsEveryFileUnderItsFinalNameAtTheEnd)
{
    record::Run run = samples::failed();
    ResultsFolder results = begin(run);

    results.finish(run);
    const fs::path folder = results.folder();

    EXPECT_EQ(folder, directory_ / "end-of-line-20261121-140508.123-ttyUSB0");
    EXPECT_THAT(namesIn(directory_), ElementsAre("end-of-line-20261121-140508.123-ttyUSB0"));
    EXPECT_THAT(namesIn(folder), ElementsAre("junit.xml", "record.json", "report.html", "trace.pcapng"));
    EXPECT_EQ(readRun(folder / "record.json"), samples::failed());
}

TEST_F(ResultsFolderTest, SaysInEveryReportWhatWasFoundAfterTheEnd)
{
    record::Run run = samples::passed();
    ResultsFolder results = begin(run);
    results.finish(run);
    const fs::path folder = results.folder();

    run.findings.push_back({Verdict::kError, "found late"});
    results.amend(run);

    EXPECT_EQ(readRun(folder / "record.json"), run);
    for (const char* name : {"junit.xml", "report.html"}) {
        std::ifstream file(folder / name);
        EXPECT_THAT(std::string(std::istreambuf_iterator<char>(file), {}), testing::HasSubstr("found late"));
    }
    EXPECT_THAT(namesIn(folder), ElementsAre("junit.xml", "record.json", "report.html", "trace.pcapng"));
}

TEST_F(ResultsFolderTest, HoldsEverythingThatPassedOnTheLineAsACapture)
{
    record::Run run = samples::failed();
    ResultsFolder results = begin(run);

    for (const auto& [number, event] : run.events.kept()) {
        results.capture(event);
    }
    results.finish(run);
    const fs::path folder = results.folder();

    std::ifstream file(folder / "trace.pcapng", std::ios::binary);
    pcapng::Reader reader(file, "trace.pcapng");
    std::vector<protocol::Frame> frames;
    std::vector<std::string> comments;
    while (const auto event = reader.next()) {
        frames.push_back(event->frame);
        comments.push_back(event->text);
    }
    std::vector<protocol::Frame> expected;
    for (const auto& [number, event] : run.events.kept()) {
        expected.push_back(event.frame);
    }
    EXPECT_EQ(frames, expected);
    EXPECT_THAT(comments, testing::Contains("tuner.frequency: frequency=990 (9.9 MHz on FM)"));
}

TEST_F(ResultsFolderTest, OfARunOfTheSameNameGetsANumber)
{
    record::Run first = samples::passed();
    record::Run second = samples::passed();
    record::Run third = samples::passed();

    begin(first).finish(first);
    ResultsFolder running = begin(second);
    ResultsFolder last = begin(third);
    running.finish(second);
    last.finish(third);

    EXPECT_EQ(second.id, "end-of-line-20261121-140508.123-ttyUSB0-2");
    EXPECT_THAT(namesIn(directory_),
                ElementsAre("end-of-line-20261121-140508.123-ttyUSB0", "end-of-line-20261121-140508.123-ttyUSB0-2",
                            "end-of-line-20261121-140508.123-ttyUSB0-3"));
    EXPECT_EQ(readRun(last.folder() / "record.json").id, third.id);
}

TEST_F(ResultsFolderTest, OfARunThatWasKilledStaysAsItIs)
{
    record::Run killed = samples::passed();
    begin(killed);

    record::Run next = samples::passed();
    begin(next).finish(next);

    EXPECT_THAT(namesIn(directory_), ElementsAre("end-of-line-20261121-140508.123-ttyUSB0-2",
                                                 "end-of-line-20261121-140508.123-ttyUSB0.running"));
}

TEST_F(ResultsFolderTest, HoldsAWholeRecordAtWhateverMomentTheStationIsKilled)
{
    for (int saves = 1; saves <= 16; ++saves) {
        record::Run run = samples::failed();
        run.id = "killed-" + std::to_string(saves);
        std::array<int, 2> pipe{};
        ASSERT_EQ(::pipe(pipe.data()), 0);
        const pid_t station = fork();
        if (station == 0) {
            ResultsFolder results(directory_, run, {});
            for (;;) {
                [[maybe_unused]] const auto told = ::write(pipe[1], "s", 1);
                results.save(run);
            }
        }
        ::close(pipe[1]);

        char begun = 0;
        for (int i = 0; i < saves; ++i) {
            ASSERT_EQ(::read(pipe[0], &begun, 1), 1);
        }
        kill(station, SIGKILL);
        waitpid(station, nullptr, 0);
        ::close(pipe[0]);

        const record::Run read = readRun(directory_ / (run.id + ".running") / "record.json");
        EXPECT_EQ(verdictOf(read), Verdict::kAborted);
        EXPECT_EQ(read.phases, run.phases);
    }
}

TEST_F(ResultsFolderTest, KeepsTheLastWholeRecordWhenTheDiskIsFull)
{
    record::Run run = samples::passed();
    ResultsFolder results = begin(run);
    const std::string before = content(results.folder() / "record.json");

    std::optional<std::string> complaint;
    {
        const FileSizeLimit disk(4096);
        try {
            results.finish(samples::failed());
        } catch (const protocol::StorageError& error) {
            complaint = error.what();
        }
    }

    ASSERT_TRUE(complaint);
    EXPECT_EQ(*complaint,
              "not recorded: cannot write " + (results.folder() / "record.json").string() + ": File too large");
    EXPECT_THAT(namesIn(results.folder()), ElementsAre("record.json"));
    EXPECT_EQ(content(results.folder() / "record.json"), before);
    EXPECT_EQ(verdictOf(readRun(results.folder() / "record.json")), Verdict::kAborted);
}

TEST_F(ResultsFolderTest, GetsItsFinalNameWithTheRecordWhenOnlyAReportDoesNotFit)
{
    record::Run run = samples::aborted();
    ResultsFolder results = begin(run);
    const auto recordSize = fs::file_size(results.folder() / "record.json");

    std::optional<std::string> complaint;
    {
        const FileSizeLimit disk(recordSize + 1000);
        try {
            results.finish(run);
        } catch (const protocol::StorageError& error) {
            complaint = error.what();
        }
    }

    ASSERT_TRUE(complaint);
    EXPECT_EQ(*complaint, "a report is missing: cannot write " + (directory_ / run.id / "report.html").string() +
                              ": File too large; the record itself is complete");
    EXPECT_EQ(results.folder(), directory_ / run.id);
    EXPECT_EQ(readRun(directory_ / run.id / "record.json"), run);
    EXPECT_THAT(namesIn(results.folder()), ElementsAre("junit.xml", "record.json", "trace.pcapng"));
}

TEST_F(ResultsFolderTest, LeavesNothingBehindWhenItsFirstRecordCannotBeWritten)
{
    record::Run run = samples::failed();
    bool refused = false;
    {
        const FileSizeLimit disk(100);
        try {
            begin(run);
        } catch (const protocol::StorageError&) {
            refused = true;
        }
    }

    EXPECT_TRUE(refused);
    EXPECT_THAT(namesIn(directory_), ElementsAre());
}

TEST_F(ResultsFolderTest, IsRefusedWhereNoDirectoryCanBeMade)
{
    std::ofstream(temporary_.path() / "file") << "x";
    record::Run run = samples::passed();

    EXPECT_THROW(ResultsFolder(temporary_.path() / "file", run, {}), protocol::StorageError);
    EXPECT_THROW(ResultsFolder("/dev/null/results", run, {}), protocol::StorageError);
}

TEST_F(ResultsFolderTest, IsRefusedForANameThatLeadsElsewhere)
{
    for (const char* id : {"", ".", "..", "../elsewhere", "a/b"}) {
        record::Run run = samples::passed();
        run.id = id;
        EXPECT_THROW(begin(run), protocol::StorageError) << id;
    }
}

TEST(RunId, IsMadeOfHarmlessCharacters)
{
    const std::chrono::system_clock::time_point time{std::chrono::nanoseconds(1795269908123456789)};
    EXPECT_EQ(makeRunId("smoke", time, "/dev/serial/by-id/usb-FTDI port0"), "smoke-20261121-140508.123-usb-FTDI-port0");
    EXPECT_EQ(makeRunId("../e vil\n", time, "/"), "-.-e-vil--20261121-140508.123");
    EXPECT_EQ(makeRunId("smoke", time, ""), "smoke-20261121-140508.123");
}

// The values of FIPS 180-2, appendix B, and of the empty message.
TEST(StoredFile, HasTheHashOfThePublishedExamples)
{
    EXPECT_EQ(sha256(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(sha256("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(sha256("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
}

TEST(StoredFile, ReplacesAFileAsAWhole)
{
    const tests::TempDir directory;
    const fs::path path = directory.path() / "file";
    std::ofstream(path) << "old and longer";

    writeAtomically(path, "new");

    EXPECT_EQ(content(path), "new");
    EXPECT_THAT(namesIn(directory.path()), ElementsAre("file"));
}

TEST(StoredFile, ThatCannotBeWrittenStaysWhatItWas)
{
    const tests::TempDir directory;
    const fs::path path = directory.path() / "file";
    std::ofstream(path) << "old";

    bool refused = false;
    {
        const FileSizeLimit disk(4);
        try {
            writeAtomically(path, "longer than the disk");
        } catch (const protocol::StorageError&) {
            refused = true;
        }
    }

    EXPECT_TRUE(refused);
    EXPECT_EQ(content(path), "old");
    EXPECT_THAT(namesIn(directory.path()), ElementsAre("file"));
}

}  // namespace
}  // namespace station::record
