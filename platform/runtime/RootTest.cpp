#include "platform/runtime/Root.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "KYRSystem.h"
#include "protocol/Errors.h"
#include "tests/support/TempDir.h"

namespace runtime {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class RootTest : public testing::Test
{
protected:
    ~RootTest() override { setRoot(""); }

    std::string rootFor(const std::string& directory)
    {
        setRoot(directory);
        return KYR_GetRootPath();
    }

    std::string content(const fs::path& file) const
    {
        std::ifstream stream(root_ / file);
        std::ostringstream text;
        text << stream.rdbuf();
        return text.str();
    }

    const tests::TempDir directory_;
    const fs::path root_ = directory_.path() / "root";
    const fs::path store_ = "kyr/etc/bluetooth/bin/PSConfig.psr";
};

TEST_F(RootTest, IsEmptyUnlessItIsSet)
{
    EXPECT_STREQ(KYR_GetRootPath(), "");
}

TEST_F(RootTest, HasNoSlashAtItsEnd)
{
    EXPECT_EQ(rootFor("/some/where//"), "/some/where");
    EXPECT_EQ(rootFor("/some/./where/../here/."), "/some/here");
}

TEST_F(RootTest, TheRealRootIsEmpty)
{
    EXPECT_EQ(rootFor("/"), "");
    EXPECT_EQ(rootFor(""), "");
}

TEST_F(RootTest, RelativeOneBecomesAbsolute)
{
    EXPECT_EQ(rootFor("some/where"), (fs::current_path() / "some/where").string());
}

TEST_F(RootTest, GetsTheDirectoriesOfAHeadUnit)
{
    EXPECT_TRUE(makeHeadUnitDirectories(root_.string()));

    for (const char* name : {"perm_data/data/bluetooth", "perm_data/log", "media", "kyr/etc/bluetooth/bin"}) {
        EXPECT_TRUE(fs::is_directory(root_ / name)) << name;
    }
}

TEST_F(RootTest, GetsAStoreFileWhoseSecondLineIsTheAddress)
{
    makeHeadUnitDirectories(root_.string());

    EXPECT_THAT(content(store_), testing::StartsWith("// PSKEYs\n&0001 = 0000 0000 0000 0000\n&"));
    EXPECT_THAT(content(store_), testing::EndsWith("\n"));
}

TEST_F(RootTest, ExistingFilesStayUnchanged)
{
    fs::create_directories((root_ / store_).parent_path());
    std::ofstream(root_ / store_) << "mine";

    EXPECT_TRUE(makeHeadUnitDirectories(root_.string()));

    EXPECT_EQ(content(store_), "mine");
}

TEST_F(RootTest, ThatCannotBeWrittenIsReportedInOneLine)
{
    fs::create_directory(root_);
    std::ofstream(root_ / "perm_data") << "a file where a directory must be";
    testing::internal::CaptureStderr();

    EXPECT_FALSE(makeHeadUnitDirectories(root_.string()));

    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_THAT(text, testing::StartsWith("engineering-service: "));
    EXPECT_THAT(text, testing::HasSubstr(root_.string()));
    EXPECT_EQ(std::ranges::count(text, '\n'), 1);
}

TEST_F(RootTest, ThatCannotBeMadeIsRefused)
{
    std::ofstream(root_) << "a file where a directory must be";
    const std::string below = (root_ / "unit").string();

    EXPECT_THAT([&] { makeHeadUnitDirectories(below); },
                testing::ThrowsMessage<protocol::StorageError>(
                    testing::StartsWith("--root " + below + ": cannot make the directory: ")));
}

TEST_F(RootTest, TheRealRootIsLeftAlone)
{
    EXPECT_TRUE(makeHeadUnitDirectories(""));

    EXPECT_FALSE(fs::exists(root_));
}

class RunDirectoryTest : public testing::Test
{
protected:
    RunDirectoryTest() { setenv("XDG_RUNTIME_DIR", runtime_.path().c_str(), 1); }

    static std::string refusal()
    {
        try {
            makeRunDirectory();
            return "";
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    }

    const tests::TempDir runtime_;
    const fs::path expected_ = runtime_.path() / "engineering";
};

TEST_F(RunDirectoryTest, IsMadeInTheRuntimeDirectoryForItsOwnerOnly)
{
    EXPECT_EQ(makeRunDirectory(), expected_);

    EXPECT_TRUE(fs::is_directory(expected_));
    EXPECT_EQ(fs::status(expected_).permissions(), fs::perms::owner_all);
}

TEST_F(RunDirectoryTest, ExistingOneIsUsedAndClosedToOthers)
{
    fs::create_directory(expected_);
    fs::permissions(expected_, fs::perms::all);
    std::ofstream(expected_ / "kept") << "mine";

    EXPECT_EQ(makeRunDirectory(), expected_);

    EXPECT_TRUE(fs::exists(expected_ / "kept"));
    EXPECT_EQ(fs::status(expected_).permissions(), fs::perms::owner_all);
}

TEST_F(RunDirectoryTest, SymbolicLinkInItsPlaceIsRefused)
{
    fs::create_directory(runtime_.path() / "elsewhere");
    fs::create_symlink("elsewhere", expected_);

    EXPECT_THAT(refusal(), HasSubstr(expected_.string()));
}

TEST_F(RunDirectoryTest, FileInItsPlaceIsRefused)
{
    std::ofstream(expected_) << "mine";

    EXPECT_THAT(refusal(), HasSubstr("not a directory"));
}

TEST_F(RunDirectoryTest, OfAnotherUserIsRefused)
{
    fs::create_directory(expected_);
    if (chown(expected_.c_str(), 4242, 4242) != 0) {
        GTEST_SKIP() << "only root can give a directory away";
    }

    EXPECT_THAT(refusal(), HasSubstr("another user"));
}

TEST_F(RunDirectoryTest, WithoutARuntimeDirectoryIsTheUsersOwnInTmp)
{
    unsetenv("XDG_RUNTIME_DIR");

    EXPECT_EQ(makeRunDirectory(), "/tmp/engineering-" + std::to_string(getuid()));
}

}  // namespace
}  // namespace runtime
