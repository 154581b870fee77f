#include "station/plan/Load.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/TempDir.h"

namespace station::plan {
namespace {

namespace fs = std::filesystem;

/// A directory to work in, empty at first.
class ShippedPlans : public testing::Test
{
protected:
    ShippedPlans()
    {
        fs::create_directories(root / "elsewhere");
        fs::current_path(root / "elsewhere");
    }

    ~ShippedPlans() override { fs::current_path(before_); }

private:
    const ::tests::TempDir directory_;
    const fs::path before_ = fs::current_path();

protected:
    const fs::path root = fs::canonical(directory_.path());
};

TEST_F(ShippedPlans, AreThoseOfTheWorkingDirectoryFirst)
{
    fs::create_directories(root / "share/plans");
    fs::create_directories(root / "build/debug/bin");
    fs::create_directories("share/plans");

    EXPECT_EQ(shippedPlans(root / "build/debug/bin/tool"), "share/plans");
}

TEST_F(ShippedPlans, AreFoundFromABuild)
{
    fs::create_directories(root / "share/plans");
    fs::create_directories(root / "build/debug/bin");

    EXPECT_EQ(shippedPlans(root / "build/debug/bin/tool"), root / "share/plans");
}

TEST_F(ShippedPlans, AreFoundWhereTheyAreInstalled)
{
    fs::create_directories(root / "usr/bin");
    fs::create_directories(root / "usr/share/engineering/plans");

    EXPECT_EQ(shippedPlans(root / "usr/bin/tool"), root / "usr/share/engineering/plans");
}

TEST_F(ShippedPlans, AreNamedAsInTheSourceTreeWhenThereAreNone)
{
    EXPECT_EQ(shippedPlans(root / "usr/bin/tool"), "share/plans");
}

}  // namespace
}  // namespace station::plan
