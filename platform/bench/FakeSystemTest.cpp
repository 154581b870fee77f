#include "platform/bench/FakeSystem.h"

#include <KYRSystem.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <sstream>

#include "platform/bench/HeadUnit.h"
#include "platform/runtime/Root.h"
#include "tests/support/TempDir.h"

namespace bench {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;
using testing::UnorderedElementsAre;

class FakeSystemTest : public testing::Test
{
protected:
    FakeSystemTest() { unit_.install(); }

    std::string path(const std::string& name) const { return (directory_.path() / name).string(); }

    void write(const std::string& name, const std::string& text = "") const { std::ofstream(path(name)) << text; }

    std::string read(const std::string& name) const
    {
        std::stringstream text;
        text << std::ifstream(path(name)).rdbuf();
        return text.str();
    }

    std::vector<std::string> names() const
    {
        std::vector<std::string> all;
        for (const auto& entry : fs::directory_iterator(directory_.path())) {
            all.push_back(entry.path().filename());
        }
        return all;
    }

    tests::TempDir directory_;
    HeadUnit unit_;
};

TEST_F(FakeSystemTest, CommandIsRunRecordedAndSucceedsWithStatusZero)
{
    const std::string command = "echo hello > " + path("out");

    EXPECT_EQ(KYR_ExecSystemCmd(command.c_str(), 1), 1);

    EXPECT_EQ(read("out"), "hello\n");
    EXPECT_THAT(unit_.calls().list(), ElementsAre(Call{"system", "Execute", {command}}));
}

TEST_F(FakeSystemTest, CommandThatFailsGivesZero)
{
    EXPECT_EQ(KYR_ExecSystemCmd("exit 3", 1), 0);
    EXPECT_EQ(KYR_ExecSystemCmd("kill -9 $$", 1), 0);
    EXPECT_EQ(KYR_ExecSystemCmd(nullptr, 1), 0);
}

TEST_F(FakeSystemTest, FailingCommandIsRecordedAndNotCarriedOut)
{
    unit_.state().set("/system/failing_commands", {"sync", "touch "});

    EXPECT_EQ(KYR_ExecSystemCmd(("touch " + path("out")).c_str(), 1), 0);

    EXPECT_THAT(names(), IsEmpty());
    EXPECT_THAT(unit_.calls().list(), ElementsAre(Call{"system", "Execute", {"touch " + path("out")}}));
}

TEST_F(FakeSystemTest, CommandWithoutWaitingKeepsRunning)
{
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);

    // Would never return if it waited: the command reads what is written only afterwards.
    EXPECT_EQ(
        KYR_ExecSystemCmd(("cat " + path("pipe") + " > " + path("out") + " && echo done > " + path("pipe")).c_str(), 0),
        1);

    write("pipe", "text");
    std::string answer;
    std::ifstream(path("pipe")) >> answer;
    EXPECT_EQ(answer, "done");
    EXPECT_EQ(read("out"), "text");
}

TEST_F(FakeSystemTest, CommandFindsSignalsAndDescriptorsAsAShellExpectsThem)
{
    const auto before = std::signal(SIGPIPE, SIG_IGN);
    sigset_t blocked;
    sigset_t mask;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, &mask);
    const int descriptor = open("/dev/null", O_RDONLY);  // not close-on-exec

    const int done = KYR_ExecSystemCmd(
        ("grep -h '^SigBlk' /proc/self/status > " + path("blocked") + "; grep '^SigIgn' /proc/self/status > " +
         path("ignored") + "; ls /proc/self/fd > " + path("fds"))
            .c_str(),
        1);
    close(descriptor);
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    std::signal(SIGPIPE, before);

    ASSERT_EQ(done, 1);
    EXPECT_EQ(read("blocked"), "SigBlk:\t0000000000000000\n");
    // The C library keeps signals 32 and 33, above those with names, for itself: the low seven digits are the others'.
    EXPECT_THAT(read("ignored"), AllOf(StartsWith("SigIgn:\t"), EndsWith("0000000\n")));
    EXPECT_EQ(read("fds"), "0\n1\n2\n3\n");  // 3: what ls reads
}

TEST_F(FakeSystemTest, CommandDoesNotWriteToStandardOutput)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    KYR_ExecSystemCmd("echo hello", 1);

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "hello\n");
}

TEST_F(FakeSystemTest, FileIsRemovedAndRecorded)
{
    write("btname");

    EXPECT_EQ(KYR_RemoveFile(path("btname").c_str(), 1), 1);

    EXPECT_THAT(names(), IsEmpty());
    EXPECT_THAT(unit_.calls().list(), ElementsAre(Call{"system", "RemoveFile", {path("btname")}}));
}

TEST_F(FakeSystemTest, MissingFileCountsAsRemoved)
{
    EXPECT_EQ(KYR_RemoveFile(path("none").c_str(), 1), 1);
    EXPECT_EQ(KYR_RemoveFile(path("none/none").c_str(), 1), 1);
    EXPECT_EQ(KYR_RemoveFile(path("none*").c_str(), 1), 1);
    EXPECT_EQ(KYR_RemoveFile(path("none/none*").c_str(), 1), 1);
    EXPECT_EQ(KYR_RemoveFile(nullptr, 1), 0);
}

TEST_F(FakeSystemTest, DirectoryIsNotRemoved)
{
    fs::create_directory(path("directory"));

    EXPECT_EQ(KYR_RemoveFile(path("directory").c_str(), 1), 0);

    EXPECT_THAT(names(), ElementsAre("directory"));
}

TEST_F(FakeSystemTest, StarRemovesEveryFileWhoseNameBeginsSo)
{
    write("log_engineering.log");
    write("log_engineering.log.0");
    write("log_engineering");
    write("log_other.log");
    write(".log_engineering.lock");
    fs::create_directory(path("log_engineering.d"));

    EXPECT_EQ(KYR_RemoveFile(path("log_engineering*").c_str(), 1), 1);

    EXPECT_THAT(names(), UnorderedElementsAre("log_other.log", ".log_engineering.lock", "log_engineering.d"));
}

TEST_F(FakeSystemTest, FailingRemovalIsRecordedAndNotCarriedOut)
{
    write("log_engineering.log");
    unit_.state().set("/system/failing_removals", {path("log_")});

    EXPECT_EQ(KYR_RemoveFile(path("log_engineering*").c_str(), 1), 0);

    EXPECT_THAT(names(), ElementsAre("log_engineering.log"));
    EXPECT_THAT(unit_.calls().list(), ElementsAre(Call{"system", "RemoveFile", {path("log_engineering*")}}));
}

TEST_F(FakeSystemTest, SystemProxiesStart)
{
    EXPECT_EQ(KYR_StartSystemProxy(), 1);
}

TEST_F(FakeSystemTest, CommandsAndPathsAreRecordedLessTheRoot)
{
    runtime::setRoot(path("my root"));
    fs::create_directories(path("my root/perm_data"));
    unit_.state().set("/system/failing_removals", {"/perm_data/keep"});
    write("my root/perm_data/keep");

    KYR_ExecSystemCmd(("mkdir '" + path("my root") + "'/perm_data/data").c_str(), 1);
    KYR_RemoveFile(path("my root/perm_data/keep").c_str(), 1);
    runtime::setRoot("");

    EXPECT_TRUE(fs::is_directory(path("my root/perm_data/data")));
    EXPECT_TRUE(fs::exists(path("my root/perm_data/keep")));
    EXPECT_THAT(unit_.calls().list(), ElementsAre(Call{"system", "Execute", {"mkdir /perm_data/data"}},
                                                  Call{"system", "RemoveFile", {"/perm_data/keep"}}));
}

TEST(FakeSystem, WithoutHeadUnitNothingIsCarriedOut)
{
    EXPECT_EQ(KYR_ExecSystemCmd("true", 1), 0);
    EXPECT_EQ(KYR_RemoveFile("/nonexistent", 1), 0);
    EXPECT_EQ(KYR_StartSystemProxy(), 0);
}

}  // namespace
}  // namespace bench
