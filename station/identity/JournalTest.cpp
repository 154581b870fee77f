#include "station/identity/Journal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "protocol/catalogue/Catalogue.h"
#include "tests/engine/FileSizeLimit.h"
#include "tests/support/TempDir.h"

namespace station::identity {
namespace {

using testing::HasSubstr;
using testing::SizeIs;

class JournalTest : public testing::Test
{
protected:
    std::vector<nlohmann::json> lines() const
    {
        std::vector<nlohmann::json> parsed;
        std::ifstream in(path);
        for (std::string line; std::getline(in, line);) {
            parsed.push_back(nlohmann::json::parse(line));
        }
        return parsed;
    }

    tests::TempDir directory;
    std::string path = directory.path() / "new" / "journal.jsonl";
    std::vector<Record> all = records(protocol::catalogue::groups());
};

TEST_F(JournalTest, LineHasResultPortAndTime)
{
    Journal(path, "/dev/x").note("U1", {&all[0], {true, "SN1"}, "SN2", {true, "SN2"}, Result::kWritten});

    ASSERT_THAT(lines(), SizeIs(1));
    auto line = lines()[0];
    EXPECT_THAT(line["time"].get<std::string>(), testing::MatchesRegex("20..-..-..T..:..:..[.]......Z"));
    line.erase("time");
    EXPECT_EQ(line, nlohmann::json::parse(
                        R"({"schema":1,"port":"/dev/x","unit":"U1","record":"factory-serial","old":"SN1","new":"SN2",
                            "read":"SN2","result":"written"})"));
}

TEST_F(JournalTest, WaivedRulesAreNamed)
{
    Journal(path, "/dev/x").note("U1", {&all[0], {}, "SN2", {true, "SN2"}, Result::kWritten}, "--reissue: board");

    EXPECT_EQ(lines().at(0)["waived"], "--reissue: board");
}

TEST_F(JournalTest, LineOfAnEndHasTheUnitAndTheReason)
{
    Journal(path, "/dev/x").noteEnd("U1", "the link failed");

    auto line = lines().at(0);
    line.erase("time");
    EXPECT_EQ(line, nlohmann::json::parse(
                        R"({"schema":1,"port":"/dev/x","unit":"U1","result":"ended","reason":"the link failed"})"));
}

TEST_F(JournalTest, FileThatIsNotOnADiskIsNoTrouble)
{
    Journal journal("/dev/null", "/dev/x");
    journal.noteEnd("U1", "one");

    EXPECT_EQ(journal.trouble(), "");
}

TEST_F(JournalTest, LineThatIsCutByAFullDiskIsTroubleAndDoesNotSpoilTheNext)
{
    Journal journal(path, "/dev/x");
    {
        const FileSizeLimit limit(5);
        journal.noteEnd("U1", "first");
    }
    EXPECT_THAT(journal.trouble(), HasSubstr("journal.jsonl: cannot be written: No space left on device"));

    journal.noteEnd("U1", "second");
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    EXPECT_EQ(line.size(), 5u);
    std::getline(in, line);
    EXPECT_EQ(nlohmann::json::parse(line)["reason"], "second");
}

TEST_F(JournalTest, MissingValueIsNull)
{
    Journal(path, "/dev/x").note("", {&all[0], {}, "SN2", {}, Result::kMissing});

    EXPECT_TRUE(lines().at(0)["old"].is_null());
    EXPECT_TRUE(lines().at(0)["read"].is_null());
}

TEST_F(JournalTest, LinesAreAppended)
{
    Journal(path, "/dev/x").noteEnd("U1", "the link failed");
    Journal(path, "/dev/x").noteEnd("U1", "again");

    ASSERT_THAT(lines(), SizeIs(2));
    EXPECT_EQ(lines()[0]["reason"], "the link failed");
}

TEST_F(JournalTest, LettersStayAsTheyAreWritten)
{
    Journal(path, "/dev/x").noteEnd("Gerät", "the link failed");

    std::string line;
    std::getline(std::ifstream(path) >> std::ws, line);
    EXPECT_THAT(line, HasSubstr("\"Gerät\""));
}

TEST_F(JournalTest, UnfinishedLineDoesNotSpoilTheNext)
{
    Journal journal(path, "/dev/x");
    journal.noteEnd("U1", "first");
    std::ofstream(path, std::ios::app) << R"({"schema":1,"ti)";

    journal.noteEnd("U1", "second");

    std::ifstream in(path);
    std::vector<std::string> found;
    for (std::string line; std::getline(in, line);) {
        found.push_back(line);
    }
    ASSERT_THAT(found, SizeIs(3));
    EXPECT_EQ(found[1], R"({"schema":1,"ti)");
    EXPECT_EQ(nlohmann::json::parse(found[2])["reason"], "second");
}

TEST_F(JournalTest, OnlyItsOwnerCanReadIt)
{
    const Journal journal(path, "/dev/x");
    struct stat file = {};
    ASSERT_EQ(stat(path.c_str(), &file), 0);

    EXPECT_EQ(file.st_mode & 0777, 0600u);
}

TEST_F(JournalTest, FileThatCannotBeOpenedIsNamed)
{
    try {
        Journal("/proc/none/journal.jsonl", "/dev/x");
        FAIL() << "it was made";
    } catch (const protocol::StorageError& error) {
        EXPECT_THAT(error.what(), HasSubstr("/proc/none/journal.jsonl: cannot be written: "));
        EXPECT_EQ(error.status(), protocol::kNotRecorded);
    }
}

TEST_F(JournalTest, LineThatCannotBeWrittenIsTrouble)
{
    Journal journal("/dev/full", "/dev/x");
    EXPECT_EQ(journal.trouble(), "");

    journal.noteEnd("", "");

    EXPECT_EQ(journal.trouble(), "/dev/full: cannot be written: No space left on device");
}

}  // namespace
}  // namespace station::identity
