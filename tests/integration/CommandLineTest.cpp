#include <gmock/gmock.h>

#include "tests/integration/BenchTest.h"

namespace tests {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

struct Program {
    const char* name;
    const char* path;
};

class EveryProgram : public BenchTest, public testing::WithParamInterface<Program>
{
};

TEST_P(EveryProgram, HelpGoesToStandardOutputWithStatusZero)
{
    const auto outcome = run({GetParam().path, "--help"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, HasSubstr("--version"));
    EXPECT_THAT(outcome.err, IsEmpty());
}

TEST_P(EveryProgram, VersionIsNameAndNumberWithStatusZero)
{
    const auto outcome = run({GetParam().path, "--version"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, std::string(GetParam().name) + " 1.0.0\n");
    EXPECT_THAT(outcome.err, IsEmpty());
}

TEST_P(EveryProgram, UnknownOptionIsOneLineOnStandardErrorWithStatusTwo)
{
    const auto outcome = run({GetParam().path, "--no-such-option"});

    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.out, IsEmpty());
    EXPECT_THAT(linesOf(outcome.err), SizeIs(1)) << outcome.err;
    EXPECT_THAT(outcome.err, StartsWith(std::string(GetParam().name) + ": "));
}

INSTANTIATE_TEST_SUITE_P(CommandLine, EveryProgram,
                         testing::Values(Program{"engineering-service", ENGINEERING_SERVICE},
                                         Program{"engineering-hmi", ENGINEERING_HMI},
                                         Program{"engineering-line", ENGINEERING_LINE},
                                         Program{"engineering-station", ENGINEERING_STATION},
                                         Program{"headunitctl", HEADUNITCTL}),
                         [](const auto& row) {
                             std::string name(row.param.name);
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

}  // namespace
}  // namespace tests
