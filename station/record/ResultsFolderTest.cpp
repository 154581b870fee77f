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
#include "station/record/RunList.h"
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
    EXPECT_THAT(namesIn(results.folder()), ElementsAre("record.jsonl"));
    const record::Run read = readRun(results.folder() / "record.jsonl");
    EXPECT_EQ(verdictOf(read), Verdict::kAborted);
    EXPECT_EQ(headlineOf(read).reason, "the run did not end: the station was stopped or lost its power");
    EXPECT_EQ(read.ended, std::chrono::system_clock::time_point{});
}

TEST_F(ResultsFolderTest, KeepsWhatWasToldAndStillSaysAborted)
{
    record::Run run = samples::passed();
    ResultsFolder results = begin(run);

    samples::tell(samples::passed(), results);

    const record::Run read = readRun(results.folder() / "record.jsonl");
    EXPECT_EQ(verdictOf(read), Verdict::kAborted);
    EXPECT_EQ(read.phases, samples::passed().phases);
    EXPECT_THAT(namesIn(results.folder()), ElementsAre("record.jsonl", "trace.pcapng"));
}

TEST_F(ResultsFolderTest, HoldsEveryFileUnderItsFinalNameAtTheEnd)
{
    record::Run run = samples::failed();
    ResultsFolder results = begin(run);
    samples::tell(run, results);

    results.finish(run);
    const fs::path folder = results.folder();

    EXPECT_EQ(folder, directory_ / "end-of-line-20261121-140508.123-ttyUSB0");
    EXPECT_THAT(namesIn(directory_), ElementsAre("end-of-line-20261121-140508.123-ttyUSB0"));
    EXPECT_THAT(namesIn(folder),
                ElementsAre("junit.xml", "record.json", "record.jsonl", "report.html", "trace.pcapng"));
    EXPECT_EQ(readRun(folder / "record.json"), samples::failed());
    EXPECT_EQ(readRun(folder / "record.jsonl"), samples::failed());
}

TEST_F(ResultsFolderTest, SaysInEveryReportWhatWasFoundAfterTheEnd)
{
    record::Run run = samples::passed();
    ResultsFolder results = begin(run);
    samples::tell(run, results);
    results.finish(run);
    const fs::path folder = results.folder();

    run.findings.push_back({Verdict::kError, "found late"});
    results.amend(run);

    EXPECT_EQ(readRun(folder / "record.json"), run);
    EXPECT_EQ(readRun(folder / "record.jsonl"), run);
    for (const char* name : {"junit.xml", "report.html"}) {
        std::ifstream file(folder / name);
        EXPECT_THAT(std::string(std::istreambuf_iterator<char>(file), {}), testing::HasSubstr("found late"));
    }
    EXPECT_THAT(namesIn(folder),
                ElementsAre("junit.xml", "record.json", "record.jsonl", "report.html", "trace.pcapng"));
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
    EXPECT_EQ(readRun(last.folder() / "record.jsonl").id, third.id);
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

TEST_F(ResultsFolderTest, HoldsAReadableRecordAtWhateverMomentTheStationIsKilled)
{
    for (int tells = 1; tells <= 16; ++tells) {
        record::Run run = samples::failed();
        run.id = "killed-" + std::to_string(tells);
        std::array<int, 2> pipe{};
        ASSERT_EQ(::pipe(pipe.data()), 0);
        const pid_t station = fork();
        if (station == 0) {
            ResultsFolder results(directory_, run, {});
            for (;;) {
                samples::tell(run, results);
                [[maybe_unused]] const auto told = ::write(pipe[1], "s", 1);
            }
        }
        ::close(pipe[1]);

        char told = 0;
        for (int i = 0; i < tells; ++i) {
            ASSERT_EQ(::read(pipe[0], &told, 1), 1);
        }
        kill(station, SIGKILL);
        waitpid(station, nullptr, 0);
        ::close(pipe[0]);

        const record::Run read = readRun(directory_ / (run.id + ".running") / "record.jsonl");
        EXPECT_EQ(verdictOf(read), Verdict::kAborted);
        ASSERT_GE(read.phases.at(1).groups.size(), run.phases[1].groups.size() * static_cast<std::size_t>(tells));
        EXPECT_EQ(read.phases[1].groups[1].tries, run.phases[1].groups[1].tries);
    }
}

TEST_F(ResultsFolderTest, HoldsARecordThatSaysIfTheTeardownDidNotRun)
{
    record::Run whole = samples::passed();
    record::Run killed = samples::passed();
    killed.phases[record::Run::kTeardown].groups.clear();
    const auto told = [this](record::Run& run) {
        ResultsFolder results = begin(run);
        samples::tell(run, results);
        return readRun(results.folder() / "record.jsonl");
    };

    const record::Run read = told(killed);

    EXPECT_THAT(headlineOf(read).beside, ElementsAre("the teardown did not run, so auto-test mode may still be on"));
    EXPECT_EQ(summaryOf(read, outcomeOf(read)), "4 steps passed before the end.");
    EXPECT_THAT(headlineOf(told(whole)).beside, ElementsAre());
}

TEST_F(ResultsFolderTest, HoldsARecordThatIsReadUpToTheByteWhereItWasCut)
{
    record::Run run = samples::failed();
    ResultsFolder results = begin(run);
    samples::tell(run, results);
    results.finish(run);
    const std::string whole = content(results.folder() / "record.jsonl");
    fs::create_directory(temporary_.path() / "cut.running");
    const fs::path cut = temporary_.path() / "cut.running" / "record.jsonl";

    for (std::size_t length = 0; length < whole.size(); length += 97) {
        std::ofstream(cut) << whole.substr(0, length);
        const bool between = length == 0 || whole[length - 1] == '\n';
        EXPECT_FALSE(readRun(cut).id.empty());
        EXPECT_EQ(listRuns(temporary_.path()).runs.front().verdict, Verdict::kAborted);

        EXPECT_EQ(headlineOf(readRun(cut)).reason,
                  std::string("the run did not end: the station was stopped or lost its power") +
                      (between ? "" : "; its record ends within a line"))
            << length;
    }
}

TEST_F(ResultsFolderTest, HoldsARecordThatIsReadUpToZerosAfterALossOfPower)
{
    record::Run run = samples::passed();
    ResultsFolder results = begin(run);
    samples::tell(run, results);
    std::ofstream(results.folder() / "record.jsonl", std::ios::app) << std::string(4096, '\0');

    const record::Run read = readRun(results.folder() / "record.jsonl");

    EXPECT_EQ(read.phases, run.phases);
    EXPECT_THAT(headlineOf(read).reason, testing::EndsWith("its record ends within a line"));
}

TEST_F(ResultsFolderTest, HoldsARecordWhoseReaderSaysWhatItLeavesOut)
{
    record::Run run = samples::passed();
    ResultsFolder results = begin(run);
    samples::tell(run, results);
    const fs::path path = results.folder() / "record.jsonl";
    const std::string running = content(path);
    results.finish(run);
    const fs::path other = temporary_.path() / "record.jsonl";
    const auto headlineWith = [&](const std::string& text) {
        std::ofstream(other) << text;
        return headlineOf(readRun(other));
    };

    const Headline torn = headlineWith(content(results.folder() / "record.jsonl") + R"({"event":"ended",)");
    const Headline zeros = headlineWith(running + std::string("\0\0\n{}\n", 6));

    EXPECT_EQ(torn.verdict, Verdict::kPass);
    EXPECT_THAT(torn.beside, ElementsAre("its record ends within a line, after the end of the run"));
    const auto lines = std::to_string(std::ranges::count(running, '\n') + 1);
    EXPECT_THAT(zeros.reason,
                testing::EndsWith("; line " + lines + " of its record begins with zeros, and nothing after it counts"));
}

TEST_F(ResultsFolderTest, HoldsLinesOfAnyLengthAndOfLaterVersions)
{
    record::Run run = samples::passed();
    ResultsFolder results = begin(run);
    samples::tell(run, results);
    std::ofstream(results.folder() / "record.jsonl", std::ios::app)
        << R"({"event":"later","text":")" << std::string(20'000'000, 'x') << "\"}\n";

    EXPECT_EQ(readRun(results.folder() / "record.jsonl").phases, run.phases);
}

TEST_F(ResultsFolderTest, RefusesARecordThatIsBrokenInTheMiddleWithTheLine)
{
    record::Run run = samples::passed();
    ResultsFolder results = begin(run);
    std::ofstream(results.folder() / "record.jsonl", std::ios::app) << "{]\n{}\n";
    const std::string path = (results.folder() / "record.jsonl").string();

    try {
        readRun(path);
        FAIL() << "it was read";
    } catch (const RecordError& error) {
        EXPECT_EQ(error.what(), path + ": line 2: expected a JSON object, got {]");
    }
}

/// @returns the message of the error that `finish` ends with while no file may have more than `limit` bytes.
std::string complaintAbout(ResultsFolder& results, const record::Run& run, rlim_t limit)
{
    const FileSizeLimit disk(limit);
    try {
        results.finish(run);
    } catch (const protocol::StorageError& error) {
        return error.what();
    }
    return "";
}

TEST_F(ResultsFolderTest, KeepsWhatFitsWhenTheDiskIsFull)
{
    record::Run run = samples::failed();
    ResultsFolder results = begin(run);
    samples::tell(run, results);
    const std::string before = content(results.folder() / "record.jsonl");

    EXPECT_EQ(complaintAbout(results, run, before.size() + 10),
              "not recorded: " + (results.folder() / "record.jsonl").string() + ": cannot be written: File too large");

    EXPECT_THAT(namesIn(results.folder()), ElementsAre("record.jsonl", "trace.pcapng"));
    EXPECT_THAT(content(results.folder() / "record.jsonl"), testing::StartsWith(before));
    const record::Run read = readRun(results.folder() / "record.jsonl");
    EXPECT_EQ(verdictOf(read), Verdict::kAborted);
    EXPECT_EQ(read.phases, run.phases);
}

TEST_F(ResultsFolderTest, WritesTheLinesLaterThatADiskWasTooFullFor)
{
    record::Run run = samples::failed();
    ResultsFolder results = begin(run);
    {
        const FileSizeLimit disk(1000);
        samples::tell(run, results);
    }

    EXPECT_THROW(results.finish(run), protocol::StorageError);  // the capture has ended

    EXPECT_EQ(results.folder(), directory_ / run.id);
    EXPECT_EQ(readRun(results.folder() / "record.jsonl"), run);
}

TEST_F(ResultsFolderTest, GetsItsFinalNameWithTheRecordWhenOnlyAReportDoesNotFit)
{
    record::Run run = samples::withoutSteps();
    ResultsFolder results = begin(run);

    EXPECT_EQ(complaintAbout(results, run, 3000),
              "a report is missing: " + (directory_ / run.id / "report.html").string() +
                  ": cannot be written: File too large; the record itself is complete");

    EXPECT_EQ(results.folder(), directory_ / run.id);
    EXPECT_EQ(readRun(directory_ / run.id / "record.jsonl"), run);
    EXPECT_THAT(namesIn(results.folder()), ElementsAre("junit.xml", "record.json", "record.jsonl", "trace.pcapng"));
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

    writeAtomically(path, [](std::ostream& out) { out << "new"; });

    EXPECT_EQ(content(path), "new");
    EXPECT_THAT(namesIn(directory.path()), ElementsAre("file"));
}

TEST(StoredFile, DoesNotReplaceADevice)
{
    const tests::TempDir directory;
    const auto pipe = directory.path() / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);

    EXPECT_THROW(writeAtomically(pipe, [](std::ostream& out) { out << "text"; }), protocol::StorageError);

    EXPECT_TRUE(fs::is_fifo(pipe));
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
            writeAtomically(path, [](std::ostream& out) { out << "longer than the disk"; });
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
