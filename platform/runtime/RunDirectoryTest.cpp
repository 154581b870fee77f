#include "platform/runtime/RunDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "tests/support/TempDir.h"

namespace runtime {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

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

TEST_F(RunDirectoryTest, ThatIsThereAlreadyIsUsedAndClosedToOthers)
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

    EXPECT_THAT(refusal(), HasSubstr("no directory"));
}

TEST_F(RunDirectoryTest, OfAnotherUserIsRefused)
{
    fs::create_directory(expected_);
    if (chown(expected_.c_str(), 4242, 4242) != 0)
        GTEST_SKIP() << "only root can give a directory away";

    EXPECT_THAT(refusal(), HasSubstr("another user"));
}

TEST_F(RunDirectoryTest, WithoutARuntimeDirectoryIsTheUsersOwnInTmp)
{
    unsetenv("XDG_RUNTIME_DIR");

    EXPECT_EQ(makeRunDirectory(), "/tmp/engineering-" + std::to_string(getuid()));
}

}  // namespace
}  // namespace runtime
