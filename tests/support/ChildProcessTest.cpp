#include "tests/support/ChildProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

namespace tests {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using Stream = ChildProcess::Stream;

std::vector<std::string> shell(const std::string& script)
{
    return {"/bin/sh", "-c", script};
}

TEST(ChildProcess, GivesStatusAndBothOutputsOfAProgramThatEnded)
{
    const auto outcome = run(shell("echo out; echo err >&2; exit 3"));

    EXPECT_EQ(outcome.status, 3);
    EXPECT_EQ(outcome.out, "out\n");
    EXPECT_EQ(outcome.err, "err\n");
}

TEST(ChildProcess, OutputBeyondAPipesCapacityIsCollectedWhole)
{
    EXPECT_EQ(run(shell("head -c 300000 /dev/zero")).out.size(), 300000u);
}

TEST(ChildProcess, ThatASignalEndedHas128PlusItsNumber)
{
    ChildProcess process(shell("kill -TERM $$"));

    EXPECT_EQ(process.wait(), 128 + SIGTERM);
}

TEST(ChildProcess, ThatCannotBeExecutedEndsWith127)
{
    EXPECT_EQ(run({"/no/such/program"}).status, 127);
}

TEST(ChildProcess, WaitEndsWithoutStatusWhileTheProgramRuns)
{
    ChildProcess process({"tail", "-f", "/dev/null"});

    EXPECT_EQ(process.wait(10ms), std::nullopt);
}

TEST(ChildProcess, LineIsFoundBeforeTheProgramEnds)
{
    ChildProcess process(shell("echo first; echo second; exec tail -f /dev/null"));

    EXPECT_EQ(process.waitForLine(Stream::kOut, "sec"), "second");
    EXPECT_EQ(process.waitForLine(Stream::kOut, "first"), "first");
    EXPECT_EQ(process.waitForLine(Stream::kOut, "third", 10ms), std::nullopt);
}

TEST(ChildProcess, LineThatCanNoLongerComeIsNotWaitedFor)
{
    ChildProcess process(shell("echo first"));

    EXPECT_EQ(process.waitForLine(Stream::kOut, "third", 1h), std::nullopt);
}

TEST(ChildProcess, LastLineCountsWithoutItsEndOnceTheStreamIsClosed)
{
    ChildProcess process(shell("printf 'one\\ntwo'"));
    process.wait();

    EXPECT_THAT(process.lines(Stream::kOut), ElementsAre("one", "two"));
}

TEST(ChildProcess, EnvironmentIsTheTestsOwnWithTheChanges)
{
    setenv("CHILD_KEPT", "kept", 1);
    setenv("CHILD_REMOVED", "removed", 1);

    const auto outcome = run(shell("echo $CHILD_KEPT,$CHILD_REMOVED,$CHILD_NEW"),
                             {{"CHILD_REMOVED", std::nullopt}, {"CHILD_NEW", "new"}});

    EXPECT_EQ(outcome.out, "kept,,new\n");
}

TEST(ChildProcess, IsGoneWithTheObject)
{
    pid_t pid = 0;
    {
        ChildProcess process({"tail", "-f", "/dev/null"});
        pid = process.pid();
        ASSERT_EQ(kill(pid, 0), 0);
    }

    EXPECT_EQ(kill(pid, 0), -1);
}

TEST(SanitizerReport, IsFoundByItsFirstLine)
{
    EXPECT_EQ(sanitizerReport("a\nWARNING: ThreadSanitizer: data race (pid=1)\nb\n"),
              "WARNING: ThreadSanitizer: data race (pid=1)");
    EXPECT_EQ(sanitizerReport("==1==ERROR: AddressSanitizer: heap-use-after-free"),
              "==1==ERROR: AddressSanitizer: heap-use-after-free");
    EXPECT_EQ(sanitizerReport("x.cpp:1:2: runtime error: shift"), "x.cpp:1:2: runtime error: shift");
    EXPECT_EQ(sanitizerReport("an error at run time\n"), "");
}

}  // namespace
}  // namespace tests
