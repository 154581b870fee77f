#include "station/instrument/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "protocol/Errors.h"
#include "tests/support/TempDir.h"

namespace station::instrument {
namespace {

using namespace std::chrono_literals;
using testing::EndsWith;
using testing::HasSubstr;
using testing::SizeIs;
using How = ProgramEnd::How;

/// More than a loaded machine needs.
constexpr auto kAmple = 20s;

class ProgramTest : public testing::Test
{
protected:
    std::string script(const std::string& text)
    {
        const auto path = directory.path() / "script";
        std::ofstream(path) << "#!/bin/sh\n" << text;
        chmod(path.c_str(), 0755);
        return path;
    }

    ProgramEnd run(const std::string& text, std::chrono::nanoseconds timeout = kAmple, const std::string& input = "")
    {
        return runProgram({script(text), "one", "two words", "$HOME;`id`"}, input, timeout, interrupt);
    }

    /// @returns the number that the script has written into a file.
    pid_t pidIn(const char* name) const
    {
        pid_t pid = 0;
        std::ifstream(directory.path() / name) >> pid;
        return pid;
    }

    /// @returns whether nothing of that number runs; an orphan that has been killed may wait for init to reap it.
    static bool isGone(pid_t pid)
    {
        std::ifstream status("/proc/" + std::to_string(pid) + "/stat");
        std::string word;
        status >> word >> word >> word;
        return pid > 0 && (!status || word == "Z" || word == "X");
    }

    const ::tests::TempDir directory;
    Interrupt interrupt;
};

TEST_F(ProgramTest, GetsItsArgumentsAndInputAndRunsInItsFolder)
{
    const auto end = run("printf '%s|' \"$@\"; cat; pwd; echo trouble >&2; exit 7", kAmple, "input ");

    EXPECT_EQ(end.how, How::kExited);
    EXPECT_EQ(end.status, 7);
    EXPECT_EQ(end.out,
              "one|two words|$HOME;`id`|input " + std::filesystem::canonical(directory.path()).string() + "\n");
    EXPECT_EQ(end.err, "trouble\n");
}

TEST_F(ProgramTest, SignalThatEndsItIsNamed)
{
    const auto end = run("kill -SEGV $$");

    EXPECT_EQ(end.how, How::kSignalled);
    EXPECT_EQ(end.status, SIGSEGV);
}

TEST_F(ProgramTest, FileThatIsNoProgramIsNotRunByAShell)
{
    const auto path = directory.path() / "plain";
    std::ofstream(path) << "echo hello\n";
    chmod(path.c_str(), 0755);

    EXPECT_THAT([&] { runProgram({path}, "", kAmple, interrupt); },
                testing::ThrowsMessage<protocol::LineError>(
                    EndsWith("cannot be started: expected a program, or a script with #! in its first line")));
}

TEST_F(ProgramTest, ProgramThatIsNotThereIsRefused)
{
    EXPECT_THROW(runProgram({directory.path() / "none"}, "", kAmple, interrupt), protocol::LineError);
}

TEST_F(ProgramTest, OneThatNeverEndsIsKilledWithAllThatItStarted)
{
    const auto end =
        run("trap '' TERM\n"
            "sleep 1000 & echo $! >child\n"
            "setsid sh -c 'trap \"\" TERM; echo $$ >escaped; while :; do sleep 1; done' &\n"
            "setsid sh -c '(setsid sleep 1000 & echo $! >orphan)'\n"
            "while [ ! -s escaped ]; do :; done\n"
            "while :; do sleep 1; done\n",
            1s);

    EXPECT_EQ(end.how, How::kTimedOut);
    for (const char* const each : {"child", "escaped", "orphan"}) {
        EXPECT_TRUE(isGone(pidIn(each))) << each;
    }
}

TEST_F(ProgramTest, OneThatEndsLeavesNothingBehind)
{
    const auto end = run("setsid sleep 1000 >/dev/null 2>&1 & echo $! >child; exit 0");

    EXPECT_EQ(end.how, How::kExited);
    EXPECT_TRUE(isGone(pidIn("child")));
}

TEST_F(ProgramTest, ChildThatKeepsTheOutputOpenDoesNotDelayTheEnd)
{
    const auto before = std::chrono::steady_clock::now();

    const auto end = run("sleep 1000 & echo done");

    EXPECT_EQ(end.out, "done\n");
    EXPECT_LT(std::chrono::steady_clock::now() - before, kAmple);
}

TEST_F(ProgramTest, OneThatForksAllTheTimeIsKilled)
{
    const auto end = run("fork() { sh -c 'sleep 1000' & sleep 0.01; fork; }\nfork", 300ms);

    EXPECT_EQ(end.how, How::kTimedOut);
}

TEST_F(ProgramTest, OneThatPrintsAGigabyteIsStopped)
{
    const auto end = run("head -c 1000000000 /dev/zero");

    EXPECT_EQ(end.how, How::kTooMuch);
    EXPECT_THAT(end.out, SizeIs(kMostOutput));
}

TEST_F(ProgramTest, GigabyteOfComplaintsIsReadAndItsEndKept)
{
    const auto end = run("head -c 100000000 /dev/zero >&2; echo last >&2");

    EXPECT_EQ(end.how, How::kExited);
    EXPECT_THAT(end.err, SizeIs(kKeptErrors));
    EXPECT_THAT(end.err, EndsWith("last\n"));
}

TEST_F(ProgramTest, OneThatClosesItsOutputEarlyIsAwaited)
{
    const auto end = run("echo early; exec >&- 2>&-; sleep 0.1; exit 3");

    EXPECT_EQ(end.status, 3);
    EXPECT_EQ(end.out, "early\n");
}

TEST_F(ProgramTest, InterruptKillsIt)
{
    std::jthread user([this] {
        while (pidIn("started") == 0) {
            std::this_thread::yield();
        }
        interrupt.request();
    });

    EXPECT_THROW(run("echo $$ >started; exec sleep 1000"), Interrupted);

    EXPECT_TRUE(isGone(pidIn("started")));
}

TEST_F(ProgramTest, SeveralAtOnceDoNotWaitForEachOther)
{
    const std::string path = script("if [ $1 = slow ]; then sleep 1000; fi; echo $1");
    std::vector<std::string> outs(4);
    {
        std::jthread slow([&] { EXPECT_EQ(runProgram({path, "slow"}, "", 2s, interrupt).how, How::kTimedOut); });
        std::vector<std::jthread> others;
        for (std::string& out : outs) {
            others.emplace_back([&] { out = runProgram({path, "quick"}, "", kAmple, interrupt).out; });
        }
    }

    EXPECT_THAT(outs, testing::Each("quick\n"));
}

}  // namespace
}  // namespace station::instrument
