#include "engineering/base/PersistentFile.h"

#include <gtest/gtest.h>

#include "platform/runtime/Root.h"

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

}  // namespace
