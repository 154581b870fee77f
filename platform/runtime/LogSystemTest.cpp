#include "platform/runtime/LogSystem.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "KYRLog.h"
#include "host/Descriptor.h"
#include "platform/runtime/Root.h"
#include "protocol/Errors.h"
#include "tests/support/TempDir.h"

// zlog is set up once in a process, and so is the category. Each test that sets it up needs a process of its own.

/// zlog 1.2.18 sets its defaults up twice when it is configured from a text, and loses the first.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:libzlog";
}

namespace runtime {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;

void logLine(int level, const char* text)
{
    constexpr const char* kFile = "engineering/Some.cpp";
    constexpr const char* kFunction = "DoIt";
    zlog(liblog_category, kFile, std::char_traits<char>::length(kFile), kFunction,
         std::char_traits<char>::length(kFunction), 42, level, "%s", text);
}

std::string content(const fs::path& file)
{
    std::ifstream stream(file);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

class LogSystemTest : public testing::Test
{
protected:
    LogSystemTest()
    {
        liblog_category = nullptr;
        setRoot(root_.string());
    }
    ~LogSystemTest() override
    {
        liblog_category = nullptr;
        setRoot("");
    }

    fs::path writeConfiguration(const std::string& text) const
    {
        const fs::path file = directory_.path() / "zlog.conf";
        std::ofstream(file) << text;
        return file;
    }

    static std::string refusal(const std::string& file)
    {
        try {
            useLogConfiguration(file);
            return "";
        } catch (const protocol::UserError& error) {
            return error.what();
        }
    }

    const tests::TempDir directory_;
    const fs::path root_ = directory_.path() / "a root, \"odd\" [100%]";
};

using BuiltInLogTest = LogSystemTest;

TEST_F(BuiltInLogTest, KeepsInfoAndAboveInTheLogDirectoryAndRotates)
{
    makeHeadUnitDirectories(root_.string());
    const fs::path logs = root_ / "perm_data/log";

    ASSERT_EQ(log_system_init("engineering"), 1);
    ASSERT_EQ(log_system_init("engineering"), 1);
    logLine(ZLOG_LEVEL_DEBUG, "not this");
    logLine(ZLOG_LEVEL_INFO, "but this");

    // time, level, process and thread, place, function, message
    EXPECT_THAT(content(logs / "log_engineering.log"),
                MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9:]{8}\\.[0-9]{3} INFO +[0-9]+:[0-9]+ "
                             "engineering/Some\\.cpp:42 DoIt\\(\\) but this\n"));

    const std::string kilobyte(1000, 'x');
    for (int count = 0; count < 5000; ++count) {
        logLine(ZLOG_LEVEL_ERROR, kilobyte.c_str());
    }

    std::uintmax_t total = 0;
    for (const auto& entry : fs::directory_iterator(logs)) {
        if (entry.path().filename().string().starts_with("log_engineering")) {
            total += entry.file_size();
        }
    }
    EXPECT_LE(total, 4u * 1024 * 1024 + 2000);
    EXPECT_GE(total, 3u * 1024 * 1024 - 2000);
}

TEST_F(BuiltInLogTest, AppendsToTheEarlierLogAndStartsANewFileAfterAFactoryReset)
{
    makeHeadUnitDirectories(root_.string());
    const fs::path log = root_ / "perm_data/log/log_engineering.log";
    std::ofstream(log) << "earlier\n";

    ASSERT_EQ(log_system_init("engineering"), 1);
    logLine(ZLOG_LEVEL_INFO, "first");
    EXPECT_THAT(content(log), AllOf(testing::StartsWith("earlier\n"), HasSubstr("first\n")));

    fs::remove(log);
    logLine(ZLOG_LEVEL_INFO, "second");

    EXPECT_THAT(content(log), AllOf(HasSubstr("second\n"), testing::Not(HasSubstr("first"))));
    EXPECT_EQ(fs::status(log).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(BuiltInLogTest, PipeIsRefusedSinceItsReaderCouldStopTheService)
{
    makeHeadUnitDirectories(root_.string());
    const fs::path log = root_ / "perm_data/log/log_engineering.log";
    ASSERT_EQ(mkfifo(log.c_str(), 0600), 0);
    const host::Descriptor reader(open(log.c_str(), O_RDWR | O_CLOEXEC));

    EXPECT_EQ(log_system_init("engineering"), 0);
}

class LogWithoutDirectoryTest : public LogSystemTest
{
};

TEST_F(LogWithoutDirectoryTest, FailsWithOneReport)
{
    testing::internal::CaptureStderr();

    EXPECT_EQ(log_system_init("engineering"), 0);

    EXPECT_EQ(liblog_category, nullptr);
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_THAT(text, AllOf(testing::StartsWith("engineering-service: "), HasSubstr("perm_data/log")));
    EXPECT_EQ(std::ranges::count(text, '\n'), 1);
}

using LogConfigurationTest = LogSystemTest;

TEST_F(LogConfigurationTest, IsUsedInPlaceOfTheBuiltIn)
{
    const fs::path log = directory_.path() / "own.log";
    const fs::path file = writeConfiguration("[formats]\nplain = \"%V %m%n\"\n[rules]\nengineering.DEBUG \"" +
                                             log.string() + "\"; plain\n");

    useLogConfiguration(file.string());
    ASSERT_EQ(log_system_init("engineering"), 1);
    logLine(ZLOG_LEVEL_DEBUG, "hello");

    EXPECT_EQ(content(log), "DEBUG hello\n");
}

TEST_F(LogConfigurationTest, ThatDoesNotExistIsRefused)
{
    const std::string file = (directory_.path() / "none.conf").string();

    EXPECT_THAT(refusal(file), AllOf(HasSubstr(file), HasSubstr("no such file")));
}

TEST_F(LogConfigurationTest, DirectoryIsRefused)
{
    EXPECT_THAT(refusal(directory_.path().string()), HasSubstr("expected a file, got a directory or device"));
}

TEST_F(LogConfigurationTest, RefusedByZlogIsReported)
{
    const fs::path file = writeConfiguration("not a configuration\n");

    EXPECT_THAT(refusal(file.string()), HasSubstr(file.string()));
}

TEST_F(LogConfigurationTest, WhoseOutputCannotBeOpenedIsRefused)
{
    const fs::path file = writeConfiguration("[rules]\nengineering.INFO \"/no/such/directory/x.log\"\n");

    EXPECT_THAT(refusal(file.string()), HasSubstr(file.string()));
}

}  // namespace
}  // namespace runtime
