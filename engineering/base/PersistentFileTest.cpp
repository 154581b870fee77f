#include "engineering/base/PersistentFile.h"

#include <gtest/gtest.h>

#include "platform/runtime/Root.h"
#include "tests/engine/FileSizeLimit.h"
#include "tests/support/TempDir.h"

namespace {

class PersistentPathTest : public testing::Test
{
protected:
    ~PersistentPathTest() override { runtime::setRoot(""); }
};

TEST_F(PersistentPathTest, OnAHeadUnitItIsThePathItself)
{
    runtime::setRoot("");

    EXPECT_EQ(PersistentPath("/media/backup.txt"), "/media/backup.txt");
    EXPECT_EQ(PersistentShellPath("/media/backup.txt"), "/media/backup.txt");
}

TEST_F(PersistentPathTest, TheRootStandsInFront)
{
    runtime::setRoot("/tmp/unit-1");

    EXPECT_EQ(PersistentPath("/media/backup.txt"), "/tmp/unit-1/media/backup.txt");
    EXPECT_EQ(PersistentShellPath("/media/backup.txt"), "/tmp/unit-1/media/backup.txt");
}

TEST_F(PersistentPathTest, ARootThatTheShellWouldSplitIsQuoted)
{
    runtime::setRoot("/tmp/my unit's");

    EXPECT_EQ(PersistentPath("/media"), "/tmp/my unit's/media");
    EXPECT_EQ(PersistentShellPath("/media"), "'/tmp/my unit'\\''s'/media");
}

struct ReadCase {
    std::size_t size;
    FileRead result;
    std::size_t left;  // bytes of the text
};

TEST(PersistentFile, IsReadWholeOrNotAtAll)
{
    const tests::TempDir directory;
    const std::string file = directory.path() / "file";
    // A chunk of reading has 4096 bytes.
    const ReadCase rows[] = {
        {0, FileRead::kComplete, 0},       {1, FileRead::kComplete, 1},       {4096, FileRead::kComplete, 4096},
        {4097, FileRead::kComplete, 4097}, {9000, FileRead::kComplete, 9000}, {9001, FileRead::kTooLong, 0},
        {20'000, FileRead::kTooLong, 0},
    };
    for (const auto& [size, result, left] : rows) {
        ASSERT_EQ(WritePersistentFile(file, std::string(size, 'x')), FileWritten::kComplete);
        std::string text = "what was there before";

        EXPECT_EQ(ReadPersistentFile(file, 9000, text), result) << size;

        EXPECT_EQ(text, std::string(left, 'x'));
    }
}

TEST(PersistentFile, ThatCannotBeReadEmptiesTheText)
{
    // The second can be opened, and its first byte cannot be read.
    for (const char* const file : {"/nonexistent/file", "/proc/self/mem"}) {
        std::string text = "what was there before";

        EXPECT_EQ(ReadPersistentFile(file, 10, text), FileRead::kFailed) << file;

        EXPECT_EQ(text, "");
    }
}

TEST(PersistentFile, WithoutSpaceIsIncomplete)
{
    EXPECT_EQ(WritePersistentFile("/nonexistent/file", "x"), FileWritten::kNotOpened);
    const tests::TempDir directory;
    const FileSizeLimit full(3);

    EXPECT_EQ(WritePersistentFile(directory.path() / "file", "abcd"), FileWritten::kIncomplete);
    EXPECT_EQ(WritePersistentFile(directory.path() / "file", "abc"), FileWritten::kComplete);
}

}  // namespace
