#include "station/record/RunList.h"

#include <gmock/gmock.h>

#include <fstream>
#include <string>

#include "protocol/Errors.h"
#include "protocol/catalogue/Catalogue.h"
#include "station/record/ResultsFolder.h"
#include "station/record/SampleRuns.h"
#include "tests/support/TempDir.h"

namespace station::record {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class RunListTest : public testing::Test
{
protected:
    void keep(record::Run run, std::string id, std::chrono::seconds later)
    {
        run.id = std::move(id);
        run.started += later;
        run.ended += later;
        ResultsFolder results(directory_, run, protocol::catalogue::groups());
        samples::tell(run, results);
        results.finish(run);
    }

    tests::TempDir temporary_;
    const fs::path directory_ = temporary_.path();
};

TEST_F(RunListTest, ListsTheNewestFirstWithWhatWentWrong)
{
    keep(samples::passed(), "b-old", std::chrono::seconds(0));
    keep(samples::failed(), "a-new", std::chrono::seconds(60));

    const RunList list = listRuns(directory_);

    ASSERT_THAT(list.runs, SizeIs(2));
    EXPECT_EQ(list.runs[0].id, "a-new");
    EXPECT_EQ(list.runs[0].verdict, Verdict::kTimeout);
    EXPECT_EQ(list.runs[0].failedStep, "Frequency after the seek");
    EXPECT_EQ(list.runs[0].failedSteps, 3U);
    EXPECT_EQ(list.runs[0].unit(), "HU-2611-004711");
    EXPECT_EQ(list.runs[0].plan, "end-of-line");
    EXPECT_EQ(list.runs[1].id, "b-old");
    EXPECT_EQ(list.runs[1].failedStep, "");
    EXPECT_THAT(list.passedOver, IsEmpty());
}

TEST_F(RunListTest, SkipsOtherFoldersAndReportsABrokenRecord)
{
    keep(samples::passed(), "good", std::chrono::seconds(0));
    fs::create_directories(directory_ / "notes");
    fs::create_directories(directory_ / "broken");
    std::ofstream(directory_ / "broken" / "record.json") << "{";
    std::ofstream(directory_ / "file") << "x";

    const RunList list = listRuns(directory_);

    EXPECT_THAT(list.runs, SizeIs(1));
    EXPECT_THAT(list.passedOver, ElementsAre(directory_ / "notes"));
    ASSERT_THAT(list.broken, SizeIs(1));
    EXPECT_THAT(list.broken[0], testing::StartsWith((directory_ / "broken" / "record.json").string() +
                                                    ": parse error at line 1, column 2: "));
}

TEST_F(RunListTest, TellsARunThatGoesOnFromOneThatWasKilled)
{
    record::Run going = samples::passed();
    going.id = "going";
    record::Run killed = samples::passed();
    killed.id = "killed";
    killed.started -= std::chrono::seconds(60);
    const ResultsFolder results(directory_, going, {});
    ResultsFolder(directory_, killed, {});

    const RunList list = listRuns(directory_);

    ASSERT_THAT(list.runs, SizeIs(2));
    EXPECT_TRUE(list.runs[0].running);
    EXPECT_FALSE(list.runs[1].running);
    EXPECT_EQ(list.runs[1].verdict, Verdict::kAborted);
}

TEST_F(RunListTest, RefusesADirectoryThatIsNotThere)
{
    try {
        listRuns(directory_ / "nothing");
        FAIL() << "it was listed";
    } catch (const protocol::StorageError& error) {
        EXPECT_EQ(error.what(), "no results in " + (directory_ / "nothing").string() + " yet (--results DIR)");
    }
    try {
        listRuns("no-such-folder");
        FAIL() << "it was listed";
    } catch (const protocol::StorageError& error) {
        EXPECT_STREQ(error.what(), "no results in ./no-such-folder yet (--results DIR)");
    }
    try {
        listRuns("/dev/null");
        FAIL() << "it was listed";
    } catch (const protocol::StorageError& error) {
        EXPECT_STREQ(error.what(), "/dev/null: cannot be read: Not a directory");
    }
}

TEST_F(RunListTest, FindsARunByItsNameItsFolderItsFileOrAsTheLatest)
{
    keep(samples::passed(), "first", std::chrono::seconds(0));
    keep(samples::passed(), "second", std::chrono::seconds(5));
    record::Run killed = samples::passed();
    killed.id = "killed";
    ResultsFolder(directory_, killed, {});
    const fs::path second = directory_ / "second" / "record.jsonl";

    EXPECT_EQ(findRecord(directory_, "second"), second);
    EXPECT_EQ(findRecord(directory_, "latest"), second);
    EXPECT_EQ(findRecord("/elsewhere", (directory_ / "second").string()), second);
    EXPECT_EQ(findRecord("/elsewhere", second.string()), second);
    EXPECT_EQ(findRecord(directory_, "killed"), directory_ / "killed.running" / "record.jsonl");
    EXPECT_THROW(findRecord(directory_, "third"), protocol::UserError);
    EXPECT_THROW(findRecord("/elsewhere", "latest"), protocol::StorageError);
}

}  // namespace
}  // namespace station::record
