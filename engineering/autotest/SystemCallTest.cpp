#include "engineering/autotest/KYRAutoTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "tests/support/LogRecorder.h"

namespace {

using testing::ElementsAre;

class SystemCallTest : public testing::Test
{
public:
    LogRecorder log;
};

TEST_F(SystemCallTest, ACommandThatExitsWithZeroSucceeds)
{
    EXPECT_EQ(SystemCall("true"), 1U);

    EXPECT_THAT(log.lines(), ElementsAre("INFO [SystemCall] system(true) success"));
}

TEST_F(SystemCallTest, ACommandThatExitsOtherwiseFails)
{
    EXPECT_EQ(SystemCall("exit 3"), 0U);

    EXPECT_THAT(log.lines(), ElementsAre("ERROR [SystemCall] system(exit 3) error(WEXITSTATUS)"));
}

TEST_F(SystemCallTest, ACommandThatIsNotThereFails)
{
    EXPECT_EQ(SystemCall("/nowhere/command 2>/dev/null"), 0U);

    EXPECT_THAT(log.lines(), ElementsAre("ERROR [SystemCall] system(/nowhere/command 2>/dev/null) error(WEXITSTATUS)"));
}

TEST_F(SystemCallTest, ACommandThatIsKilledFails)
{
    EXPECT_EQ(SystemCall("kill -9 $$"), 0U);

    EXPECT_THAT(log.lines(), ElementsAre("ERROR [SystemCall] system(kill -9 $$) error(WIFEXITED)"));
}

TEST_F(SystemCallTest, ACommandWhoseEndCannotBeHadFails)
{
    // The kernel reaps the children of a process that ignores this signal, so their status is lost.
    const auto before = std::signal(SIGCHLD, SIG_IGN);

    const unsigned int result = SystemCall("true");

    std::signal(SIGCHLD, before);
    EXPECT_EQ(result, 0U);
    EXPECT_THAT(log.lines(), ElementsAre("ERROR [SystemCall] system(true) call error"));
}

TEST_F(SystemCallTest, TheCommandIsTheShells)
{
    EXPECT_EQ(SystemCall("test $((1 + 1)) = 2 && true"), 1U);
}

}  // namespace
