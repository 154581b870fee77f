#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/engine/FileSizeLimit.h"
#include "tests/support/EngineTest.h"

namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kFile = "/media/edited.txt";
constexpr const char* kBackup = "/media/backup.txt";
constexpr const char* kRangeMessage = "INFO [rkb] ResetLineContents, Exceeded the range of configuration file lines!";

class LineEditingTest : public EngineTest
{
public:
    LineEditingTest()
    {
        start();
        forget();
    }

    int linesIn(const std::string& text)
    {
        writeFile(kFile, text);
        return engine().CountLines(path(kFile));
    }

    std::string copyOf(const std::string& text)
    {
        writeFile(kFile, text);
        writeFile("/media/copy.txt", "what was there before, and longer than all that is copied in these tests");
        EXPECT_TRUE(engine().CopyFile(path(kFile), path("/media/copy.txt")));
        return content("/media/copy.txt");
    }

    std::string edited(const std::string& text, int line, const std::string& by)
    {
        writeFile(kFile, text);
        engine().ResetLineContents(path(kFile), line, by);
        return content(kFile);
    }
};

TEST_F(LineEditingTest, LinesAreCountedAlsoALastOneWithoutEnd)
{
    EXPECT_EQ(linesIn(""), 0);
    EXPECT_EQ(linesIn("\n"), 1);
    EXPECT_EQ(linesIn("a"), 1);
    EXPECT_EQ(linesIn("a\n"), 1);
    EXPECT_EQ(linesIn("a\nb"), 2);
    EXPECT_EQ(linesIn("a\nb\n"), 2);
    EXPECT_EQ(linesIn("a\n\n"), 2);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LineEditingTest, AMissingFileHasNoLinesAndIsLogged)
{
    EXPECT_EQ(engine().CountLines(path(kFile)), 0);

    EXPECT_THAT(log.lines(), ElementsAre("INFO [rkb] CountLines, open file fail"));
}

TEST_F(LineEditingTest, ADirectoryHasNoLines)
{
    EXPECT_EQ(engine().CountLines(path("/media")), 0);
}

TEST_F(LineEditingTest, ACopyIsTheSameToTheByte)
{
    for (const std::string text : {"", "\n", "a", "a\n", "a\nb", "a\nb\n", "\n\na\r\n\n"})
        EXPECT_EQ(copyOf(text), text);
    EXPECT_EQ(copyOf(std::string("a\0b\n\xFF\0", 6)), std::string("a\0b\n\xFF\0", 6));
}

TEST_F(LineEditingTest, ACopyOfAMissingFileEmptiesTheDestination)
{
    writeFile("/media/copy.txt", "before");

    EXPECT_FALSE(engine().CopyFile(path(kFile), path("/media/copy.txt")));

    EXPECT_TRUE(fs::exists(path("/media/copy.txt")));
    EXPECT_EQ(content("/media/copy.txt"), "");
}

TEST_F(LineEditingTest, ACopyOfADirectoryEndsAndEmptiesTheDestination)
{
    writeFile("/media/copy.txt", "before");

    EXPECT_FALSE(engine().CopyFile(path("/perm_data"), path("/media/copy.txt")));

    EXPECT_EQ(content("/media/copy.txt"), "");
}

TEST_F(LineEditingTest, ACopyToWhereNoneCanBeIsLost)
{
    writeFile(kFile, "a\nb\n");

    EXPECT_FALSE(engine().CopyFile(path(kFile), path("/media")));
    EXPECT_FALSE(engine().CopyFile(path(kFile), path("/nowhere/copy.txt")));

    EXPECT_EQ(content(kFile), "a\nb\n");
}

TEST_F(LineEditingTest, ALineIsReplacedAndTheOthersStay)
{
    EXPECT_EQ(edited("a\nb\nc", 2, "X"), "a\nX\nc");
    EXPECT_EQ(edited("a\nb\nc\n", 1, "X"), "X\nb\nc\n");
    EXPECT_EQ(edited("a\nb\n", 2, "X"), "a\nX\n");
    EXPECT_EQ(edited("a\n\n\nd", 3, "longer than before"), "a\n\nlonger than before\nd");
    EXPECT_EQ(edited("a\r\nb\r\n", 1, "X"), "X\nb\r\n");
    EXPECT_EQ(edited("a\nb\nc", 2, ""), "a\n\nc");
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(LineEditingTest, ALastLineWithoutEndGetsOneWhenItIsReplaced)
{
    EXPECT_EQ(edited("a\nb\nc", 3, "X"), "a\nb\nX\n");
    EXPECT_EQ(edited("a", 1, "X"), "X\n");
}

TEST_F(LineEditingTest, ALineThatIsNotThereIsRefused)
{
    for (const int line : {0, -1, -2147483647 - 1, 4, 2147483647}) {
        log.clear();

        EXPECT_EQ(edited("a\nb\nc", line, "X"), "a\nb\nc") << line;

        EXPECT_THAT(log.lines(), ElementsAre("INFO [rkb] ResetLineContents, total_lines = 3", kRangeMessage));
    }
    EXPECT_FALSE(fs::exists(path(kBackup)));
}

TEST_F(LineEditingTest, AnEmptyFileHasNoLineToReplace)
{
    EXPECT_EQ(edited("", 1, "X"), "");

    EXPECT_THAT(log.lines(), ElementsAre("INFO [rkb] ResetLineContents, total_lines = 0", kRangeMessage));
}

TEST_F(LineEditingTest, AMissingFileIsRefusedAndNotMade)
{
    engine().ResetLineContents(path(kFile), 1, "X");

    EXPECT_FALSE(fs::exists(path(kFile)));
    EXPECT_THAT(log.lines(), ElementsAre("INFO [rkb] CountLines, open file fail",
                                         "INFO [rkb] ResetLineContents, total_lines = 0", kRangeMessage));
}

TEST_F(LineEditingTest, ADirectoryIsRefused)
{
    engine().ResetLineContents(path("/perm_data"), 1, "X");

    EXPECT_THAT(log.lines(), ElementsAre("INFO [rkb] CountLines, open file fail",
                                         "INFO [rkb] ResetLineContents, total_lines = 0", kRangeMessage));
}

TEST_F(LineEditingTest, APipeIsRefusedAndDoesNotBlock)
{
    ASSERT_EQ(mkfifo(path(kFile).c_str(), 0600), 0);

    engine().ResetLineContents(path(kFile), 1, "X");

    EXPECT_THAT(log.lines(), ElementsAre("INFO [rkb] CountLines, open file fail",
                                         "INFO [rkb] ResetLineContents, total_lines = 0", kRangeMessage));
}

TEST_F(LineEditingTest, AFileOfOneMebibyteIsEditedAndBackedUpToTheByte)
{
    std::string text = "a\nb\n" + std::string((1 << 20) - 4, 'x');
    text[1000] = '\0';
    text[2000] = '\n';

    EXPECT_EQ(edited(text, 2, "X"), "a\nX\n" + text.substr(4));

    EXPECT_EQ(content(kBackup), text);
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(LineEditingTest, ALongerFileIsRefusedWithOneErrorLineAndLeftAsItIs)
{
    const std::string text = "a\nb\n" + std::string((1 << 20) - 3, 'x');

    EXPECT_EQ(edited(text, 2, "X"), text);

    EXPECT_FALSE(fs::exists(path(kBackup)));
    EXPECT_THAT(log.errors(),
                ElementsAre("ERROR CountLines, " + path(kFile) + " is longer than 1048576 bytes, it is left as it is"));
}

TEST_F(LineEditingTest, TheBackupHoldsWhatTheFileHeldBefore)
{
    edited("a\nb\nc", 2, "X");
    EXPECT_EQ(content(kBackup), "a\nb\nc");

    engine().ResetLineContents(path(kFile), 1, "Y");
    EXPECT_EQ(content(kBackup), "a\nX\nc");
}

TEST_F(LineEditingTest, AnEditLeavesTheCountInTheLogAndNoMore)
{
    edited("a\nb\nc", 2, "X");

    EXPECT_THAT(log.lines(), ElementsAre("INFO [rkb] ResetLineContents, total_lines = 3"));
}

TEST_F(LineEditingTest, WithoutABackupTheFileIsLeftAsItIs)
{
    fs::create_directory(path(kBackup));

    EXPECT_EQ(edited("a\nb\nc", 2, "X"), "a\nb\nc");

    EXPECT_THAT(log.errors(), ElementsAre("ERROR ResetLineContents, no backup " + path(kBackup) + ", " + path(kFile) +
                                          " left as it is"));
}

TEST_F(LineEditingTest, ABackupThatIsAPipeLeavesTheFileAsItIsAndDoesNotBlock)
{
    ASSERT_EQ(mkfifo(path(kBackup).c_str(), 0600), 0);

    EXPECT_EQ(edited("a\nb\nc", 2, "X"), "a\nb\nc");

    EXPECT_THAT(log.errors(), ElementsAre("ERROR ResetLineContents, no backup " + path(kBackup) + ", " + path(kFile) +
                                          " left as it is"));
}

TEST_F(LineEditingTest, WithoutTheBackupsDirectoryTheFileIsLeftAsItIs)
{
    writeFile("/perm_data/edited.txt", "a\nb\nc");
    fs::remove_all(path("/media"));

    engine().ResetLineContents(path("/perm_data/edited.txt"), 2, "X");

    EXPECT_EQ(content("/perm_data/edited.txt"), "a\nb\nc");
    EXPECT_THAT(log.errors(), testing::SizeIs(1));
}

TEST_F(LineEditingTest, ABackupThatDoesNotFitTheDiskLeavesTheFileAsItIs)
{
    writeFile(kFile, "a\nb\nc\n");
    {
        const FileSizeLimit full(3);
        engine().ResetLineContents(path(kFile), 2, "X");
    }

    EXPECT_EQ(content(kFile), "a\nb\nc\n");
    EXPECT_THAT(log.errors(), ElementsAre("ERROR ResetLineContents, no backup " + path(kBackup) + ", " + path(kFile) +
                                          " left as it is"));
}

TEST_F(LineEditingTest, AFileThatDoesNotFitTheDiskAnyMoreIsInTheBackup)
{
    writeFile(kFile, "a\nb\nc\n");
    {
        const FileSizeLimit full(6);
        engine().ResetLineContents(path(kFile), 2, "longer than the disk");
    }

    EXPECT_EQ(content(kBackup), "a\nb\nc\n");
    EXPECT_THAT(log.errors(), ElementsAre("ERROR ResetLineContents, " + path(kFile) +
                                          " not written, its content is in " + path(kBackup)));
}

}  // namespace
