#include "engineering/Log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/LogRecorder.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

TEST(Log, EachLevelReachesTheCategoryUnderItsName)
{
    LogRecorder log;

    KYR_LOG_DEBUG("a %d", 1);
    KYR_LOG_INFO("b %s", "two");
    KYR_LOG_WARN("c");
    KYR_LOG_ERROR("d 0x%x", 0x1F);

    EXPECT_THAT(log.lines(), ElementsAre("DEBUG a 1", "INFO b two", "WARN c", "ERROR d 0x1f"));
}

TEST(Log, WithoutACategoryTheMessageIsDroppedAndStandardOutputSaysSo)
{
    LogRecorder log;
    liblog_category = nullptr;
    testing::internal::CaptureStdout();

    KYR_LOG_ERROR("lost %d", 1);
    const int nLine = __LINE__ - 1;

    std::fflush(stdout);
    const std::string strOutput = testing::internal::GetCapturedStdout();
    const std::string strProcess = std::to_string(getpid());
    const std::string strLine = std::to_string(nLine);
    EXPECT_EQ(strOutput, "[" + strProcess + "][file:engineering/LogTest.cpp][func:TestBody][line:" + strLine +
                             "]Warn:Log system not init.\n");
    EXPECT_THAT(log.lines(), IsEmpty());
}

}  // namespace
