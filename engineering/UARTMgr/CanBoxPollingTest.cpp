#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/EngineTest.h"
#include "tests/support/Text.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> g_requests;
std::vector<int> g_killed;

}  // namespace

/// Takes the place of the transport that the service lacks.
void KYRUARTManage::SendCANCommands(unsigned char cmd, std::vector<unsigned char> params)
{
    g_requests.push_back(frameText(cmd, 0, params));
}

// This program wraps KYRQLXTimer::KillNormalTimer(int).
extern "C" {

void __real__ZN11KYRQLXTimer15KillNormalTimerEi(KYRQLXTimer* timers, int id);
void __wrap__ZN11KYRQLXTimer15KillNormalTimerEi(KYRQLXTimer* timers, int id);

void __wrap__ZN11KYRQLXTimer15KillNormalTimerEi(KYRQLXTimer* timers, int id)
{
    g_killed.push_back(id);
    __real__ZN11KYRQLXTimer15KillNormalTimerEi(timers, id);
}

}  // extern "C"

namespace {

constexpr int kPoll = 101;
constexpr int kWatch = 100;

class CanBoxTest : public EngineTest
{
public:
    CanBoxTest()
    {
        m_iACKStatus = 0;
        start();
        forget();
        g_requests.clear();
        g_killed.clear();
    }
    ~CanBoxTest() override { m_iACKStatus = 0; }

    int state() { return UartManageProbe::canState(link()); }
    int retries() { return UartManageProbe::canRetries(link()); }
    bool isWatching() { return link().IsNormalTimerActive(kWatch) != 0; }

    using Bytes = std::vector<unsigned char>;

    /// Appends to the received bytes and parses once.
    /// @returns the bytes that are left.
    Bytes parsed(const Bytes& bytes)
    {
        Bytes& buffer = UartManageProbe::canBuffer(link());
        buffer.insert(buffer.end(), bytes.begin(), bytes.end());
        link().ParseCANData();
        return buffer;
    }
};

TEST_F(CanBoxTest, IsIdle)
{
    timers.advance(std::chrono::seconds(10));

    EXPECT_EQ(state(), 0);
    EXPECT_EQ(link().IsNormalTimerActive(kPoll), 0);
    EXPECT_FALSE(isWatching());
}

TEST_F(CanBoxTest, APollStartsTheWatchForTheAcknowledgement)
{
    link().OnTimerHandleFunc(kPoll);

    EXPECT_TRUE(isWatching());
    EXPECT_EQ(state(), 0);
    EXPECT_THAT(g_requests, ElementsAre("81 00 [01]"));
    EXPECT_THAT(station.replies(), IsEmpty());
    EXPECT_THAT(hmi.signals(), IsEmpty());
}

TEST_F(CanBoxTest, TheWatchTicksEvery100Milliseconds)
{
    link().OnTimerHandleFunc(kPoll);

    timers.advance(std::chrono::milliseconds(99));
    EXPECT_EQ(retries(), 0);
    timers.advance(std::chrono::milliseconds(1));
    EXPECT_EQ(retries(), 1);
    timers.advance(std::chrono::milliseconds(100));
    EXPECT_EQ(retries(), 2);
    EXPECT_TRUE(isWatching());
}

TEST_F(CanBoxTest, AnotherPollDoesNotStartTheWatchAnew)
{
    link().OnTimerHandleFunc(kPoll);
    timers.advance(std::chrono::milliseconds(99));

    link().OnTimerHandleFunc(kPoll);
    timers.advance(std::chrono::milliseconds(1));

    EXPECT_EQ(retries(), 1);
}

TEST_F(CanBoxTest, ThreeTicksWithoutAnAcknowledgementEndTheWatch)
{
    link().OnTimerHandleFunc(kPoll);

    link().OnTimerHandleFunc(kWatch);
    link().OnTimerHandleFunc(kWatch);
    EXPECT_EQ(retries(), 2);
    EXPECT_TRUE(isWatching());
    link().OnTimerHandleFunc(kWatch);

    EXPECT_EQ(retries(), 0);
    EXPECT_FALSE(isWatching());
    EXPECT_EQ(state(), 0);
}

TEST_F(CanBoxTest, APollAfterAWatchThatEndedStartsItAgain)
{
    link().OnTimerHandleFunc(kPoll);
    timers.advance(std::chrono::milliseconds(300));
    EXPECT_FALSE(isWatching());

    link().OnTimerHandleFunc(kPoll);

    EXPECT_TRUE(isWatching());
}

TEST_F(CanBoxTest, AnAcknowledgementConnectsAndEndsTheWatch)
{
    link().OnTimerHandleFunc(kPoll);
    link().OnTimerHandleFunc(kWatch);
    link().OnTimerHandleFunc(kWatch);

    m_iACKStatus = 0xFF;
    link().OnTimerHandleFunc(kWatch);

    EXPECT_EQ(state(), 1);
    EXPECT_EQ(retries(), 0);
    EXPECT_FALSE(isWatching());
}

TEST_F(CanBoxTest, AnyOtherAnswerIsNoAcknowledgement)
{
    m_iACKStatus = 0xFE;

    link().OnTimerHandleFunc(kWatch);

    EXPECT_EQ(state(), 0);
    EXPECT_EQ(retries(), 1);
}

TEST_F(CanBoxTest, OnceConnectedAPollAsksForSpeedAndParkingAndStartsNoWatch)
{
    UartManageProbe::canState(link()) = 1;

    link().OnTimerHandleFunc(kPoll);

    EXPECT_THAT(g_requests, ElementsAre("90 00 [41 02]", "90 00 [24]"));
    EXPECT_FALSE(isWatching());
    EXPECT_EQ(state(), 1);
    EXPECT_THAT(station.replies(), IsEmpty());
}

TEST_F(CanBoxTest, OnceConnectedItStaysSo)
{
    UartManageProbe::canState(link()) = 1;

    for (int i = 0; i < 4; ++i)
        link().OnTimerHandleFunc(kWatch);

    EXPECT_THAT(g_requests, IsEmpty());
    EXPECT_EQ(state(), 1);
}

TEST_F(CanBoxTest, InAnyOtherStateAPollDoesNothing)
{
    UartManageProbe::canState(link()) = 2;

    link().OnTimerHandleFunc(kPoll);

    EXPECT_THAT(g_requests, IsEmpty());
    EXPECT_FALSE(isWatching());
    EXPECT_EQ(state(), 2);
}

TEST_F(CanBoxTest, OtherTimersDoNothing)
{
    m_iACKStatus = 0xFF;

    for (const int id : {-1, 0, 20, 99, 102})
        link().OnTimerHandleFunc(id);

    EXPECT_THAT(g_requests, IsEmpty());
    EXPECT_EQ(state(), 0);
    EXPECT_EQ(retries(), 0);
    EXPECT_FALSE(isWatching());
}

TEST_F(CanBoxTest, TheLinkManagerAndTheEngineEndTheirTimersBeforeThemselves)
{
    link().OnTimerHandleFunc(kPoll);
    link().StartNormalTimer(kPoll, 1, TIMER_MILLISECONDS, LOOP_REPEAT);

    KYRSingleton<KYRUARTManage>::DestroyInstance();
    timers.advance(std::chrono::seconds(1));

    EXPECT_THAT(station.sent(), IsEmpty());
    EXPECT_THAT(g_killed, ElementsAre(kPoll, kWatch));
    KYRSingleton<KYRAutoTest>::DestroyInstance();
    EXPECT_THAT(g_killed, ElementsAre(kPoll, kWatch, KYRAutoTest::kRestartTimer));
}

TEST_F(CanBoxTest, ASpeedFrameIsPublishedAndConsumed)
{
    EXPECT_THAT(parsed({0x2E, 0x41, 0x02, 0x00, 0x3C, 0x00}), IsEmpty());

    EXPECT_THAT(hmi.signals(), ElementsAre("uart_data_changed_signal(2E 41 [00 3C])"));
}

TEST_F(CanBoxTest, AParkingFrameIsPublishedAndConsumed)
{
    EXPECT_THAT(parsed({0x2E, 0x24, 0x01, 0x01, 0xEE}), IsEmpty());

    EXPECT_THAT(hmi.signals(), ElementsAre("uart_data_changed_signal(2E 24 [01])"));
}

TEST_F(CanBoxTest, AFrameOfAnotherTypeIsConsumedOnly)
{
    EXPECT_THAT(parsed({0x2E, 0x42, 0x02, 0x00, 0x3C, 0x00}), IsEmpty());

    EXPECT_THAT(hmi.signals(), IsEmpty());
}

TEST_F(CanBoxTest, AFrameWithoutDataIsPublishedEmpty)
{
    EXPECT_THAT(parsed({0x2E, 0x41, 0x00, 0xEE}), IsEmpty());

    EXPECT_THAT(hmi.signals(), ElementsAre("uart_data_changed_signal(2E 41 [])"));
}

TEST_F(CanBoxTest, TheLongestFrameIsPublishedWhole)
{
    Bytes frame = {0x2E, 0x41, 0xFF};
    frame.insert(frame.end(), 255, 0x11);

    EXPECT_THAT(parsed(frame), testing::SizeIs(258));
    EXPECT_THAT(hmi.signals(), IsEmpty());
    EXPECT_THAT(parsed({0xEE}), IsEmpty());

    ASSERT_EQ(hmi.signals().size(), 1U);
    EXPECT_EQ(hmi.signals()[0].size(), std::string("uart_data_changed_signal(2E 41 [])").size() + 255 * 3 - 1);
}

TEST_F(CanBoxTest, GarbageBeforeAFrameGoesWithIt)
{
    EXPECT_THAT(parsed({0x78, 0x79, 0x2E, 0x41, 0x01, 0x05, 0xEE, 0x7A}), ElementsAre(0x7A));

    EXPECT_THAT(hmi.signals(), ElementsAre("uart_data_changed_signal(2E 41 [05])"));
}

TEST_F(CanBoxTest, WhatHasNoLengthYetIsLeftUntouched)
{
    EXPECT_THAT(parsed({0x78, 0x78, 0x2E, 0x41}), ElementsAre(0x78, 0x78, 0x2E, 0x41));

    EXPECT_THAT(hmi.signals(), IsEmpty());
}

TEST_F(CanBoxTest, AnIncompleteFrameIsLeftUntilItsTrailingByteIsThere)
{
    EXPECT_THAT(parsed({0x2E, 0x41, 0x02, 0x00, 0x3C}), ElementsAre(0x2E, 0x41, 0x02, 0x00, 0x3C));
    EXPECT_THAT(hmi.signals(), IsEmpty());

    EXPECT_THAT(parsed({0x99}), IsEmpty());
    EXPECT_THAT(hmi.signals(), ElementsAre("uart_data_changed_signal(2E 41 [00 3C])"));
}

TEST_F(CanBoxTest, FewerThanFourBytesAreLeftUntouched)
{
    EXPECT_THAT(parsed({}), IsEmpty());
    EXPECT_THAT(parsed({0x2E, 0x41, 0x00}), ElementsAre(0x2E, 0x41, 0x00));
}

TEST_F(CanBoxTest, BytesWithoutAStartAreLeftUntouched)
{
    EXPECT_THAT(parsed({0x01, 0x02, 0x03, 0x04, 0x05}), ElementsAre(0x01, 0x02, 0x03, 0x04, 0x05));
}

TEST_F(CanBoxTest, ACompleteFrameBehindAnIncompleteOneIsFound)
{
    EXPECT_THAT(parsed({0x2E, 0x41, 0x50, 0x2E, 0x24, 0x01, 0x07, 0xEE}), IsEmpty());
    EXPECT_THAT(parsed({0x2E, 0x2E, 0x24, 0x01, 0x08, 0xEE}), IsEmpty());

    EXPECT_THAT(hmi.signals(),
                ElementsAre("uart_data_changed_signal(2E 24 [07])", "uart_data_changed_signal(2E 24 [08])"));
}

TEST_F(CanBoxTest, OneFrameIsConsumedAtATime)
{
    EXPECT_THAT(parsed({0x2E, 0x41, 0x01, 0x05, 0xEE, 0x2E, 0x24, 0x00, 0xEE}), ElementsAre(0x2E, 0x24, 0x00, 0xEE));
    EXPECT_THAT(hmi.signals(), ElementsAre("uart_data_changed_signal(2E 41 [05])"));

    EXPECT_THAT(parsed({}), IsEmpty());
    EXPECT_THAT(hmi.signals(),
                ElementsAre("uart_data_changed_signal(2E 41 [05])", "uart_data_changed_signal(2E 24 [])"));
}

}  // namespace
