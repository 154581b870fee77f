#include "engineering/base/Log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/EngineTest.h"

namespace {

using testing::Contains;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

TEST(Log, EachLevelReachesTheCategoryUnderItsName)
{
    LogRecorder log;

    KYR_LOG_DEBUG("a %d", 1);
    KYR_LOG_INFO("b %s", "two");
    KYR_LOG_WARN("c");
    KYR_LOG_ERROR("d 0x%x", 0x1F);

    EXPECT_THAT(log.lines(), ElementsAre("DEBUG a 1", "INFO b two", "WARN c", "ERROR d 0x1f"));
}

TEST(Log, ALineNamesItsFileLineAndFunction)
{
    LogRecorder log;

    KYR_LOG_INFO("a");
    const int nLine = __LINE__ - 1;

    EXPECT_THAT(log.places(), ElementsAre(__FILE__ ":" + std::to_string(nLine) + " TestBody"));
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
    EXPECT_EQ(strOutput, "[" + strProcess + "][file:engineering/base/LogTest.cpp][func:TestBody][line:" + strLine +
                             "]Warn:Log system not init.\n");
    EXPECT_THAT(log.lines(), IsEmpty());
}

/// A command that leaves a line in the log, and the file and handler that the line names.
struct HandlerCase {
    const char* name;
    std::vector<std::uint8_t> request;  // cmd_one, cmd_two, parameters
    const char* place;
};

class HandlerLogTest : public EngineTest, public testing::WithParamInterface<HandlerCase>
{
};

TEST_P(HandlerLogTest, NamesTheHandler)
{
    startInTestMode();
    log.clear();

    const auto& request = GetParam().request;
    station.sendCommand(request[0], request[1], {request.begin() + 2, request.end()});

    EXPECT_THAT(log.places(), Contains(ContainsRegex("engineering/autotest/" + std::string(GetParam().place) + "$")));
    EXPECT_THAT(log.places(), Not(Contains(HasSubstr("operator"))));
}

INSTANTIATE_TEST_SUITE_P(
    Group, HandlerLogTest,
    testing::Values(
        HandlerCase{"Source", {0x00, 0x00, 0x01}, R"(SourceCommands\.cpp:[0-9]+ HandleSourceCommands)"},
        HandlerCase{"Eq", {0x01, 0x18}, R"(EQCommands\.cpp:[0-9]+ HandleEQCommands)"},
        HandlerCase{"Tuner", {0x02, 0x04, 0x01}, R"(TunerCommands\.cpp:[0-9]+ HandleTunerCommands)"},
        HandlerCase{"Media", {0x03, 0x01, 0x00, 0x01}, R"(MediaCommands\.cpp:[0-9]+ HandleMediaCommands)"},
        HandlerCase{"Bluetooth", {0x04, 0x0D}, R"(BTCommands\.cpp:[0-9]+ HandleBTCommands)"},
        HandlerCase{"Gps", {0x05, 0x02}, R"(GPSCommands\.cpp:[0-9]+ HandleGPSCommands)"},
        HandlerCase{"HardKey", {0x06, 0x14}, R"(HardKeyAndDisplayCommands\.cpp:[0-9]+ HandleHardKeyAndDisplay)"},
        HandlerCase{"Info", {0x07, 0x04}, R"(InfoAcquireCommands\.cpp:[0-9]+ HandleInfoAcquireCommands)"},
        HandlerCase{"CarState", {0x09, 0x0B}, R"(CarStateCommands\.cpp:[0-9]+ HandleCarState)"},
        HandlerCase{"Other", {0x0E, 0x00, 0x01}, R"(OtherCommands\.cpp:[0-9]+ HandleOtherCommands)"},
        HandlerCase{"Wifi", {0x10, 0x00, 0x01}, R"(WifiConnectCommands\.cpp:[0-9]+ HandleWifiConnectCommands)"},
        HandlerCase{"Phone", {0x11, 0x05}, R"(PhoneConnectedCommands\.cpp:[0-9]+ HandlePhoneConnected)"}),
    [](const auto& row) { return row.param.name; });

}  // namespace
