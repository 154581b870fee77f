#include "platform/bench/RootText.h"

#include <gtest/gtest.h>

namespace bench {
namespace {

struct CommandCase {
    const char* name;
    const char* root;
    const char* command;
    const char* named;
};

class CommandLessRootTest : public testing::TestWithParam<CommandCase>
{
};

TEST_P(CommandLessRootTest, IsAsTheHeadUnitWouldRunIt)
{
    EXPECT_EQ(commandLessRoot(GetParam().command, GetParam().root), GetParam().named);
}

INSTANTIATE_TEST_SUITE_P(
    RootText, CommandLessRootTest,
    testing::Values(
        CommandCase{"WithoutRoot", "", "mkdir /perm_data/data/engineering/", "mkdir /perm_data/data/engineering/"},
        CommandCase{"WithoutPath", "/tmp/r", "sync", "sync"},
        CommandCase{"OnePath", "/tmp/r", "mkdir /tmp/r/perm_data/data/engineering/",
                    "mkdir /perm_data/data/engineering/"},
        CommandCase{"TwoPaths", "/tmp/r", "cp /tmp/r/kyr/etc/PSConfig.psr /tmp/r/perm_data/data/bluetooth/",
                    "cp /kyr/etc/PSConfig.psr /perm_data/data/bluetooth/"},
        CommandCase{"PathThatOnlyBeginsLikeTheRoot", "/tmp/r", "rm /tmp/rest/file", "rm /tmp/rest/file"},
        CommandCase{"RootWithinAPath", "/tmp/r", "rm /media/tmp/r/file", "rm /media/tmp/r/file"},
        CommandCase{"QuotedRoot", "/tmp/my root", "mkdir '/tmp/my root'/perm_data/data/engineering/",
                    "mkdir /perm_data/data/engineering/"},
        CommandCase{"QuotedRootWithAQuote", "/tmp/it's", R"(mkdir '/tmp/it'\''s'/perm_data)", "mkdir /perm_data"},
        CommandCase{"QuotedPath", "/tmp/my root", "mkdir '/tmp/my root/perm_data/data/engineering/'",
                    "mkdir /perm_data/data/engineering/"},
        CommandCase{"TwoQuotedPaths", "/tmp/my root", "cp '/tmp/my root/kyr/a' '/tmp/my root/perm_data/b'",
                    "cp /kyr/a /perm_data/b"},
        CommandCase{"QuotedPathWithAQuote", "/tmp/it's", R"(mkdir '/tmp/it'\''s/perm_data')", "mkdir /perm_data"},
        CommandCase{"PathThatNeedsItsQuotes", "/tmp/r", "cat '/tmp/r/media/my song'", "cat '/media/my song'"},
        CommandCase{"OtherQuotedText", "/tmp/r", "echo 'a b' > /tmp/r/media/x", "echo 'a b' > /media/x"},
        CommandCase{"QuoteThatDoesNotEnd", "/tmp/r", "echo '/tmp/r/x", "echo '/tmp/r/x"}),
    [](const auto& each) { return each.param.name; });

TEST(RootText, PathLosesTheRoot)
{
    EXPECT_EQ(pathLessRoot("/tmp/my root/perm_data/data/bluetooth/btname", "/tmp/my root"),
              "/perm_data/data/bluetooth/btname");
}

TEST(RootText, PathElsewhereStays)
{
    EXPECT_EQ(pathLessRoot("/tmp/rest/file", "/tmp/r"), "/tmp/rest/file");
    EXPECT_EQ(pathLessRoot("/perm_data/x", ""), "/perm_data/x");
}

}  // namespace
}  // namespace bench
