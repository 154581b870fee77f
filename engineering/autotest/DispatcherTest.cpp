#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/support/EngineTest.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class DispatcherTest : public EngineTest
{
public:
    DispatcherTest()
    {
        start();
        forget();
    }
};

TEST_F(DispatcherTest, WithTheModeOffAFrameIsDroppedWithoutAnswerOrSignal)
{
    for (int group = 0; group <= 0xFF; ++group) {
        if (group == 0x0F)
            continue;
        station.sendCommand(static_cast<std::uint8_t>(group), 0x01, {0x01, 0x01});
    }

    EXPECT_THAT(station.replies(), IsEmpty());
    EXPECT_THAT(hmi.signals(), IsEmpty());
    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(DispatcherTest, ModeByteOneSwitchesTheModeOnAndTheFrameIsPublished)
{
    station.sendCommand(0x0F, 0x00, {0x01});

    EXPECT_THAT(station.replies(), ElementsAre("8F 00 [01]"));
    EXPECT_THAT(hmi.signals(), ElementsAre("OnAutoTestModeChangeSignal(1)", "uart_data_changed_signal(0F 00 [01])"));
}

TEST_F(DispatcherTest, AnyOtherModeByteSwitchesItOffComesBackAsItIsAndIsNotPublished)
{
    for (const std::uint8_t mode : {0x00, 0x02, 0x80, 0xFF}) {
        station.sendCommand(0x0F, 0x00, {0x01});
        forget();

        station.sendCommand(0x0F, 0x00, {mode, 0x55});

        char reply[16];
        std::snprintf(reply, sizeof reply, "8F 00 [%02X]", mode);
        EXPECT_THAT(station.replies(), ElementsAre(reply));
        EXPECT_THAT(hmi.signals(), ElementsAre("OnAutoTestModeChangeSignal(0)"));
    }
}

TEST_F(DispatcherTest, WithoutAModeByteTheModeStaysAndTheReplyIsEmpty)
{
    station.sendCommand(0x0F, 0x00, {0x01});
    forget();

    station.sendCommand(0x0F, 0x00);
    station.sendCommand(0x0F, 0xFF);

    EXPECT_THAT(station.replies(), ElementsAre("8F 00 []", "8F FF [01]"));
    EXPECT_THAT(hmi.requests(), IsEmpty());
}

TEST_F(DispatcherTest, TheModeIsToldInEitherMode)
{
    station.sendCommand(0x0F, 0xFF);
    station.sendCommand(0x0F, 0x00, {0x01});
    station.sendCommand(0x0F, 0xFF);

    EXPECT_THAT(station.replies(), ElementsAre("8F FF [00]", "8F 00 [01]", "8F FF [01]"));
}

TEST_F(DispatcherTest, TheModeTraceHasNoLineEnd)
{
    const auto printedFor = [this](const std::vector<std::uint8_t>& params) {
        return printedBy([&] { station.sendCommand(0x0F, 0x00, params); });
    };

    EXPECT_EQ(printedFor({0x01}), "[auto test]HandleTestMode, m_bIsAutoTestMode = 1");
    EXPECT_EQ(printedFor({}), "[auto test]HandleTestMode, m_bIsAutoTestMode = 1");
    EXPECT_EQ(printedFor({0x00}), "[auto test]HandleTestMode, m_bIsAutoTestMode = 0");
}

TEST_F(DispatcherTest, ReadyIsToldOnceModuleNineHasStarted)
{
    station.sendCommand(0x0F, 0x01);
    raise("OnModuleStatusChanged", {{"module", 8}});
    station.sendCommand(0x0F, 0x01);
    raise("OnModuleStatusChanged", {{"module", 9}});
    station.sendCommand(0x0F, 0x01);

    EXPECT_THAT(station.replies(), ElementsAre("8F 01 [00]", "8F 01 [00]", "8F 01 [01]"));
}

TEST_F(DispatcherTest, AGroup15FrameIsHandledOnce)
{
    station.sendCommand(0x0F, 0x00, {0x01});
    forget();

    station.sendCommand(0x0F, 0xFF);

    EXPECT_THAT(station.replies(), ElementsAre("8F FF [01]"));
    EXPECT_THAT(hmi.signals(), ElementsAre("uart_data_changed_signal(0F FF [])"));
}

TEST_F(DispatcherTest, AGroupWithoutAHandlerIsPublishedAndOtherwiseIgnored)
{
    startInTestMode();
    for (int group = 0; group <= 0xFF; ++group) {
        if (std::ranges::binary_search(KYRAutoTest::Groups(), group, {}, &KYRAutoTest::Group::code))
            continue;

        station.sendCommand(static_cast<std::uint8_t>(group), 0x01, {0x0A, 0x0B});

        char signal[64];
        std::snprintf(signal, sizeof signal, "uart_data_changed_signal(%02X 01 [0A 0B])", group);
        EXPECT_THAT(hmi.signals(), ElementsAre(signal));
        EXPECT_THAT(station.replies(), IsEmpty());
        EXPECT_THAT(calls(), IsEmpty());
        forget();
    }
}

TEST_F(DispatcherTest, AFrameIsPublishedBeforeItsGroupAnswers)
{
    startInTestMode();

    station.sendCommand(0x0E, 0x06, {0x02});

    EXPECT_THAT(hmi.signals(), ElementsAre("uart_data_changed_signal(0E 06 [02])", "OnAutoTestSelectPageSignal(2)"));
}

TEST_F(DispatcherTest, TheLongestFrameIsPublishedWhole)
{
    startInTestMode();

    station.sendCommand(0x0C, 0x01, std::vector<std::uint8_t>(252, 0x41));

    ASSERT_EQ(hmi.signals().size(), 1U);
    EXPECT_EQ(hmi.signals()[0].size(), std::string("uart_data_changed_signal(0C 01 [])").size() + 252 * 3 - 1);
}

TEST_F(DispatcherTest, ACommandThatEndsInAnExceptionEndsAloneAndIsLogged)
{
    station.throwOnNextSend(std::runtime_error("line out of order"));
    station.sendCommand(0x0F, 0xFF);
    station.throwOnNextSend(7);
    station.sendCommand(0x0F, 0x01);
    station.sendCommand(0x0F, 0x00, {0x01});

    EXPECT_THAT(log.errors(), ElementsAre("ERROR command 0xf 0xff ended by an exception: line out of order",
                                          "ERROR command 0xf 0x1 ended by an unknown exception"));
    EXPECT_THAT(station.replies(), ElementsAre("8F 00 [01]"));
}

}  // namespace
