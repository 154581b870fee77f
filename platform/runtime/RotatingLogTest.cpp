#include "platform/runtime/RotatingLog.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

#include "tests/support/TempDir.h"

namespace runtime {
namespace {

namespace fs = std::filesystem;

class RotatingLogTest : public testing::Test
{
protected:
    std::string content(const std::string& name) const
    {
        std::ifstream stream(temporary_.path() / name);
        std::ostringstream text;
        text << stream.rdbuf();
        return text.str();
    }

    const tests::TempDir temporary_;
    const Descriptor directory_{open(temporary_.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)};
    RotatingLog log_{directory_.get(), "a.log", 12, 2, std::chrono::milliseconds(0)};
};

TEST_F(RotatingLogTest, ALineIsInTheFileAtOnceAndOnlyItsOwnerReadsIt)
{
    ASSERT_TRUE(log_.open());

    EXPECT_TRUE(log_.add("one\n"));

    EXPECT_EQ(content("a.log"), "one\n");
    EXPECT_EQ(fs::status(temporary_.path() / "a.log").permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(RotatingLogTest, GoesOnBehindWhatAnEarlierRunHasWritten)
{
    std::ofstream(temporary_.path() / "a.log") << "old\n";
    ASSERT_TRUE(log_.open());

    EXPECT_TRUE(log_.add("new\n"));

    EXPECT_EQ(content("a.log"), "old\nnew\n");
}

TEST_F(RotatingLogTest, AFullPartMovesOnAndTheOldestGoes)
{
    for (const char* const line : {"11111\n", "22222\n", "33333\n", "44444\n", "55555\n", "66666\n", "77777\n"})
        EXPECT_TRUE(log_.add(line));

    EXPECT_EQ(content("a.log"), "77777\n");
    EXPECT_EQ(content("a.log.0"), "55555\n66666\n");
    EXPECT_EQ(content("a.log.1"), "33333\n44444\n");
    EXPECT_FALSE(fs::exists(temporary_.path() / "a.log.2"));
}

TEST_F(RotatingLogTest, ALineThatIsLongerThanAPartHasOneOfItsOwn)
{
    EXPECT_TRUE(log_.add("much too long a line\n"));
    EXPECT_TRUE(log_.add("2\n"));

    EXPECT_EQ(content("a.log.0"), "much too long a line\n");
    EXPECT_EQ(content("a.log"), "2\n");
}

TEST_F(RotatingLogTest, AFileThatWasRemovedIsMadeAnew)
{
    ASSERT_TRUE(log_.add("gone\n"));
    fs::remove(temporary_.path() / "a.log");

    EXPECT_TRUE(log_.add("here\n"));

    EXPECT_EQ(content("a.log"), "here\n");
}

TEST_F(RotatingLogTest, AFileThatWasRemovedIsMadeAnewAlsoWhenItHasJustBeenLookedAt)
{
    RotatingLog log(directory_.get(), "a.log", 1000, 2, std::chrono::hours(1));
    ASSERT_TRUE(log.add("before\n"));
    fs::remove(temporary_.path() / "a.log");

    EXPECT_TRUE(log.add("after\n"));

    EXPECT_EQ(content("a.log"), "after\n");
}

TEST_F(RotatingLogTest, APartIsFullAlsoWhenItHasNotBeenLookedAtAgain)
{
    RotatingLog log(directory_.get(), "b.log", 12, 2, std::chrono::hours(1));
    for (const char* const line : {"11111\n", "22222\n", "33333\n"})
        EXPECT_TRUE(log.add(line));

    EXPECT_EQ(content("b.log"), "33333\n");
    EXPECT_EQ(content("b.log.0"), "11111\n22222\n");
}

TEST_F(RotatingLogTest, AFileThatWasMovedAwayIsLeftAlone)
{
    ASSERT_TRUE(log_.add("old\n"));
    fs::rename(temporary_.path() / "a.log", temporary_.path() / "kept");

    EXPECT_TRUE(log_.add("new\n"));

    EXPECT_EQ(content("kept"), "old\n");
    EXPECT_EQ(content("a.log"), "new\n");
}

TEST_F(RotatingLogTest, WhatCannotBeOpenedIsToldAndTriedAgainWithTheNextLine)
{
    fs::create_directory(temporary_.path() / "a.log");
    EXPECT_FALSE(log_.open());
    EXPECT_FALSE(log_.add("lost\n"));
    fs::remove(temporary_.path() / "a.log");

    EXPECT_TRUE(log_.add("there\n"));

    EXPECT_EQ(content("a.log"), "there\n");
}

TEST_F(RotatingLogTest, LinesOfSeveralThreadsAreWholeAndNoneIsLost)
{
    constexpr int kThreads = 4;
    constexpr int kLines = 250;
    RotatingLog log(directory_.get(), "b.log", 1000, 100);
    {
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < kThreads; ++thread)
            threads.emplace_back([&log, thread] {
                for (int line = 0; line < kLines; ++line)
                    log.add(std::string(9, static_cast<char>('a' + thread)) + "\n");
            });
    }

    std::array<int, kThreads> counts{};
    for (const auto& entry : fs::directory_iterator(temporary_.path())) {
        std::ifstream stream(entry.path());
        for (std::string line; std::getline(stream, line);) {
            ASSERT_EQ(line, std::string(9, line.front()));
            ++counts.at(static_cast<std::size_t>(line.front() - 'a'));
        }
    }
    EXPECT_THAT(counts, testing::Each(kLines));
}

}  // namespace
}  // namespace runtime
