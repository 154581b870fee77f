#include "engineering/UARTMgr/KYRUARTManage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <latch>
#include <random>
#include <thread>

#include "tests/support/EngineTest.h"
#include "tests/support/WireVectors.h"

namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

class LinkTest : public EngineTest
{
public:
    LinkTest() { start(); }

    void switchOpenDebug(bool on)
    {
        set("/config",
            {{"/engineering/open_debug", on}, {"/system/enable_cp_test", false}, {"/project/project_name", "bench"}});
    }
};

wire::Bytes joined(const wire::Bytes& first, const wire::Bytes& second)
{
    wire::Bytes all = first;
    all.insert(all.end(), second.begin(), second.end());
    return all;
}

TEST_F(LinkTest, TheStationSwitchesTheUnitIntoAutoTestModeByteForByte)
{
    station.deliver(wire::kModeOn);

    EXPECT_THAT(station.sent(), ElementsAre(wire::kModeOnReply));
    EXPECT_THAT(hmi.signals(), ElementsAre("OnAutoTestModeChangeSignal(1)", "uart_data_changed_signal(0F 00 [01])"));
}

TEST_F(LinkTest, AFrameThatArrivesFirstOfAllFindsTheEngine)
{
    station.deliver(wire::kAskReady);

    EXPECT_THAT(station.replies(), ElementsAre("8F 01 [00]"));
}

TEST_F(LinkTest, TwoFramesInOneChunkAreAnsweredInOrder)
{
    station.deliver(joined(wire::kModeOn, wire::kAskMode));

    EXPECT_THAT(station.replies(), ElementsAre("8F 00 [01]", "8F FF [01]"));
}

TEST_F(LinkTest, AFrameIsAnsweredOnceWhereverItIsSplit)
{
    for (std::size_t at = 0; at <= wire::kModeOn.size(); ++at) {
        const auto middle = wire::kModeOn.begin() + static_cast<std::ptrdiff_t>(at);

        station.deliver({wire::kModeOn.begin(), middle});
        station.deliver({middle, wire::kModeOn.end()});

        EXPECT_THAT(station.replies(), ElementsAre("8F 00 [01]")) << "split before byte " << at;
        station.clear();
    }
}

TEST_F(LinkTest, ABadChecksumIsLoggedNotAnsweredAndTheNextFrameIsHandled)
{
    wire::Bytes broken = wire::kModeOn;
    ++broken.back();

    station.deliver(joined(broken, wire::kAskMode));

    EXPECT_THAT(log.lines(), Contains("INFO checksum_param != check_sum"));
    EXPECT_THAT(station.replies(), ElementsAre("8F FF [00]"));
}

TEST_F(LinkTest, AGoodFrameLeavesItsTraceInTheLog)
{
    log.clear();

    station.deliver(joined({0x11, 0x22, 0x33}, wire::kAskReady));

    EXPECT_THAT(log.lines(),
                ElementsAre("INFO MsgDecode, msg_length = 11", "INFO [rkb] ParseData, checksum_param = ffee",
                            "DEBUG KYRUARTManage::HandleCommands, cmd_one = 0xf, cmd_two = 0x1, param_len = 0",
                            "DEBUG HandleAutoTestCommands, cmd_one = 0xf, cmd_two = 0x1, param_len = 0",
                            "INFO [rkb] ParseData End, m_vRecvBuf.size() = 0", "INFO - End"));
}

TEST_F(LinkTest, AChunkOfNothingStillParsesOnce)
{
    log.clear();
    unsigned char ucNothing = 0;

    link().MsgDecode(&ucNothing, 0);
    link().MsgDecode(&ucNothing, -5);

    EXPECT_THAT(log.lines(), ElementsAre("INFO MsgDecode, msg_length = 0", "INFO - End",
                                         "INFO MsgDecode, msg_length = -5", "INFO - End"));
}

TEST_F(LinkTest, NoiseChangesNothingAndAGoodFrameBehindItIsAnswered)
{
    std::mt19937 random(7);
    for (int chunk = 0; chunk < 200; ++chunk) {
        wire::Bytes noise(random() % 300);
        for (auto& byte : noise)
            byte = static_cast<std::uint8_t>(random() % 250);  // no length of 255, which would swallow the good frame
        station.deliver(noise);
    }
    station.deliver(wire::Bytes(300, 0x00));
    station.clear();

    station.deliver(wire::kAskMode);

    EXPECT_THAT(station.replies(), ElementsAre("8F FF [00]"));
}

TEST_F(LinkTest, AStreamWithoutAFrameIsCutWithOneWarning)
{
    const wire::Bytes garbage(600'000, 0x55);
    station.deliver(garbage);
    EXPECT_THAT(log.lines(), Not(Contains(HasSubstr("WARN"))));

    station.deliver(garbage);

    // The last three bytes might still begin a frame.
    EXPECT_THAT(log.lines(), Contains("WARN receive buffer full, 1199997 bytes that begin no frame dropped"));
}

TEST_F(LinkTest, TheMostParametersThatFitAre246)
{
    link().SendData(0x8A, 0x03, std::vector<unsigned char>(246, 0x01));

    ASSERT_THAT(station.sent(), ElementsAre(SizeIs(254)));
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(LinkTest, AFrameThatDoesNotFitIsNotSentAndTheLogSaysItsLength)
{
    link().SendData(0x8A, 0x03, std::vector<unsigned char>(247, 0x01));

    EXPECT_THAT(station.sent(), IsEmpty());
    EXPECT_THAT(log.errors(), ElementsAre("ERROR SendData, 0x8a 0x3 not sent: 247 parameter bytes make a frame of 256, "
                                          "255 fit"));
}

TEST_F(LinkTest, EveryVectorIsSentAsItStandsOnTheWire)
{
    for (const wire::Vector& vector : wire::kFrames) {
        link().SendData(vector.cmdOne, vector.cmdTwo, vector.params);

        EXPECT_THAT(station.sent(), ElementsAre(vector.frame)) << vector.name;
        station.clear();
    }
}

TEST_F(LinkTest, SeveralThreadsSendAtOnceAndEveryFrameIsWhole)
{
    constexpr std::size_t kThreads = 4;
    std::latch begin(kThreads);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kThreads; ++i)
        threads.emplace_back([&] {
            begin.arrive_and_wait();
            for (int n = 0; n < 100; ++n)
                link().SendData(0x8F, 0x00, {0x01});
        });
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_THAT(station.sent(), SizeIs(kThreads * 100));
    EXPECT_THAT(station.sent(), Each(wire::kModeOnReply));
}

TEST_F(LinkTest, TheCanBoxIsNotReached)
{
    forget();

    link().RequestConnected();
    link().RequestSpeed();
    link().RequestParking();
    link().SendCANCommands(0x90, {0x41, 0x02});

    EXPECT_THAT(station.sent(), IsEmpty());
    EXPECT_THAT(hmi.signals(), IsEmpty());
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(LinkTest, AfterItsExitNothingIsReceivedOrSent)
{
    link().Exit();

    station.deliver(wire::kAskMode);
    link().SendData(0x8F, 0x00, {0x01});

    EXPECT_THAT(station.sent(), IsEmpty());
}

struct TrackReport {
    int type;
    std::vector<std::string> replies;
};

TEST_F(LinkTest, TracksAreReportedUnderTheCodeOfTheirMediaType)
{
    const TrackReport reports[] = {
        {0, {}}, {1, {"83 05 [07]"}}, {2, {"83 0D [07]"}}, {3, {"83 0B [07]"}}, {4, {}}, {255, {}},
    };
    for (const TrackReport& report : reports) {
        log.clear();

        link().AutoTestSetTrackIndex(static_cast<MEDIA_TYPE>(report.type), 7);

        EXPECT_EQ(station.replies(), report.replies) << report.type;
        EXPECT_THAT(log.lines(), ElementsAre("DEBUG AutoTestSetTrackIndex, track_index = 7"));
        station.clear();
    }
}

TEST_F(LinkTest, OpenDebugPrintsWhatIsReceivedAndSent)
{
    switchOpenDebug(true);

    const std::string strPrinted = printedBy([&] { station.deliver(wire::kAskReady); });

    EXPECT_EQ(strPrinted,
              "[auto test][engineering]ParseData:[len=8]2A A2 00 02 0F 01 FF EE \n"
              "[auto test][engineering]SendData:[len=10]2A A2 00 03 8F 01 00 00 FF 6D \n"
              "[auto test]KYRAutoTest::HandleAutoTestCommands, m_bIsAutoTestMode = 0\n");
}

TEST_F(LinkTest, OpenDebugTellsWhenTheModeIsOn)
{
    station.deliver(wire::kModeOn);
    switchOpenDebug(true);

    EXPECT_THAT(printedBy([&] { station.deliver(wire::kAskReady); }),
                HasSubstr("[auto test]KYRAutoTest::HandleAutoTestCommands, m_bIsAutoTestMode = 1\n"));
}

TEST_F(LinkTest, WithoutOpenDebugNothingIsPrinted)
{
    EXPECT_EQ(printedBy([&] { station.deliver(wire::kAskReady); }), "");
}

TEST_F(LinkTest, OpenDebugIsLookedUpForEveryFrame)
{
    switchOpenDebug(true);
    EXPECT_NE(printedBy([&] { station.deliver(wire::kAskReady); }), "");

    switchOpenDebug(false);
    EXPECT_EQ(printedBy([&] { station.deliver(wire::kAskReady); }), "");
}

TEST_F(LinkTest, ADumpHasRoomFor170Bytes)
{
    std::vector<unsigned char> bytes(171, 0xAB);

    const std::string strFits = printedBy([&] { link().PrintData("tag", bytes.data(), 170); });
    const std::string strTooLong = printedBy([&] { link().PrintData("tag", bytes.data(), 171); });
    const std::string strNone = printedBy([&] { link().PrintData("tag", bytes.data(), 0); });

    EXPECT_EQ(strFits.size(), std::string("tag:[len=170]").size() + 170 * 3 + 1);
    EXPECT_TRUE(strFits.starts_with("tag:[len=170]AB AB "));
    EXPECT_EQ(strTooLong, "");
    EXPECT_EQ(strNone, "tag:[len=0]\n");
}

/// What an enabled CarPlay test looks like when the link manager is made.
TEST_F(EngineTest, TheCarPlayTestSwitchIsReadOnceAtTheStart)
{
    set("/config",
        {{"/engineering/open_debug", false}, {"/system/enable_cp_test", true}, {"/project/project_name", "bench"}});
    start();

    EXPECT_EQ(m_bIsCPTest, 1);
    EXPECT_THAT(log.lines(), Contains("INFO UARTManage() m_bIsCPTest = 1"));
}

TEST_F(EngineTest, TheLinkManagerAttachesBeforeAnythingElse)
{
    start();

    auto lines = log.lines();
    ASSERT_GE(lines.size(), 4U);
    lines.resize(4);
    EXPECT_THAT(lines, ElementsAre("INFO [rkb] UARTManage::UARTManage() created!!!", "INFO Init()",
                                   "INFO UARTManage() m_bIsCPTest = 0", "DEBUG KYRAutoTest(), Created!"));
}

}  // namespace
