#include <gmock/gmock.h>

#include "tests/integration/BenchTest.h"
#include "tests/support/BusClient.h"
#include "tests/support/WireVectors.h"

namespace tests {
namespace {

using testing::ElementsAre;
using wire::Bytes;
using wire::kAskMode;
using wire::kModeOn;
using wire::kModeOnReply;

constexpr const char* kDone = "()";
constexpr const char* kUnknownMethod = "org.freedesktop.DBus.Error.UnknownMethod";
constexpr const char* kLimitsExceeded = "org.freedesktop.DBus.Error.LimitsExceeded";
constexpr const char* kInvalidArguments = "org.freedesktop.DBus.Error.InvalidArgs";

// 03+8F+FF+01 = 0192, two's complement FE6E
const Bytes kModeIsOn{0x2A, 0xA2, 0x00, 0x03, 0x8F, 0xFF, 0x01, 0x00, 0xFE, 0x6E};

using EngineeringBusTest = BenchTest;

TEST_F(EngineeringBusTest, ModeOnIsSignalledAndTheFrameRepublished)
{
    startService();
    BusClient hmi(bus().address());

    RawLine(link()).expectExchange(kModeOn, kModeOnReply);

    EXPECT_THAT(hmi.waitForSignals(2),
                ElementsAre("OnAutoTestModeChangeSignal (true,)",
                            "uart_data_changed_signal (byte 0x0f, byte 0x00, <[byte 0x01]>, byte 0x01)"));
}

TEST_F(EngineeringBusTest, ModeOffIsSignalledAndTheFrameNotRepublished)
{
    startService();
    BusClient hmi(bus().address());
    RawLine line(link());

    // 03+0F+00+02 = 0014, two's complement FFEC; 03+8F+00+02 = 0094, two's complement FF6C
    line.expectExchange({0x2A, 0xA2, 0x00, 0x03, 0x0F, 0x00, 0x02, 0x00, 0xFF, 0xEC},
                        {0x2A, 0xA2, 0x00, 0x03, 0x8F, 0x00, 0x02, 0x00, 0xFF, 0x6C});
    line.expectExchange(kModeOn, kModeOnReply);

    EXPECT_THAT(hmi.waitForSignals(3),
                ElementsAre("OnAutoTestModeChangeSignal (false,)", "OnAutoTestModeChangeSignal (true,)",
                            "uart_data_changed_signal (byte 0x0f, byte 0x00, <[byte 0x01]>, byte 0x01)"));
}

TEST_F(EngineeringBusTest, FrameWithoutParametersIsRepublishedWithAnEmptyArray)
{
    startService();
    BusClient hmi(bus().address());
    RawLine line(link());
    line.expectExchange(kModeOn, kModeOnReply);

    line.expectExchange(kAskMode, kModeIsOn);

    EXPECT_EQ(hmi.waitForSignals(3).back(), "uart_data_changed_signal (byte 0x0f, byte 0xff, <@ay []>, byte 0x00)");
}

struct SentData {
    const char* name;
    const char* arguments;
    Bytes frame;
};

class UartSendDataTest : public BenchTest, public testing::WithParamInterface<SentData>
{
};

TEST_P(UartSendDataTest, PutsTheFrameOnTheLine)
{
    startService();
    BusClient hmi(bus().address());
    RawLine line(link());

    EXPECT_EQ(hmi.callEngineering("uart_send_data", GetParam().arguments), kDone);

    EXPECT_EQ(line.read(GetParam().frame.size()), GetParam().frame);
}

INSTANTIATE_TEST_SUITE_P(
    EngineeringBus, UartSendDataTest,
    testing::Values(
        // 02+83+05 = 008A
        SentData{"SizeZeroSendsNoneOfTheArray",
                 "(byte 0x83, byte 0x05, <[byte 0x01, 0x02, 0x03]>, uint16 0)",
                 {0x2A, 0xA2, 0x00, 0x02, 0x83, 0x05, 0xFF, 0x76}},
        // 05+83+05+01+02+03 = 0093
        SentData{"SizeOfTheArraySendsAll",
                 "(byte 0x83, byte 0x05, <[byte 0x01, 0x02, 0x03]>, uint16 3)",
                 {0x2A, 0xA2, 0x00, 0x05, 0x83, 0x05, 0x01, 0x02, 0x03, 0x00, 0xFF, 0x6D}},
        // 07+83+05+01+02+03+00+00 = 0095
        SentData{"SizeBeyondTheArrayIsFilledWithZeros",
                 "(byte 0x83, byte 0x05, <[byte 0x01, 0x02, 0x03]>, uint16 5)",
                 {0x2A, 0xA2, 0x00, 0x07, 0x83, 0x05, 0x01, 0x02, 0x03, 0x00, 0x00, 0x00, 0xFF, 0x6B}},
        // 03+83+05+01 = 008C
        SentData{"SizeBelowTheArraysSendsTheFirst",
                 "(byte 0x83, byte 0x05, <[byte 0x01, 0x02, 0x03]>, uint16 1)",
                 {0x2A, 0xA2, 0x00, 0x03, 0x83, 0x05, 0x01, 0x00, 0xFF, 0x74}},
        // 1 + ... + 20 = 00D2; 16+83+05+D2 = 0170
        SentData{"TwentySendsAll",
                 "(byte 0x83, byte 0x05, <[byte 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, "
                 "21]>, uint16 20)",
                 {0x2A, 0xA2, 0x00, 0x16, 0x83, 0x05, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08,
                  0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F, 0x10, 0x11, 0x12, 0x13, 0x14, 0xFE, 0x90}}),
    [](const auto& row) { return row.param.name; });

TEST_F(EngineeringBusTest, SizeAboveTwentyIsAnsweredWithSuccessAndSendsNothing)
{
    startService();
    BusClient hmi(bus().address());
    RawLine line(link());

    EXPECT_EQ(hmi.callEngineering("uart_send_data", "(byte 0x83, byte 0x05, <[byte 0x01]>, uint16 21)"), kDone);
    EXPECT_EQ(hmi.callEngineering("uart_send_data", "(byte 0x83, byte 0x05, <[byte 0x01]>, uint16 65535)"), kDone);

    // Calls are served in their order: had these sent anything, it would stand before this reply.
    EXPECT_EQ(hmi.callEngineering("uart_send_data", "(byte 0x83, byte 0x05, <@ay []>, uint16 0)"), kDone);
    EXPECT_EQ(line.read(8), (Bytes{0x2A, 0xA2, 0x00, 0x02, 0x83, 0x05, 0xFF, 0x76}));
}

/// @returns arguments of uart_send_data with an array of that many bytes, the first of which is to be sent.
std::string argumentsWithArrayOf(int count)
{
    std::string array = "[byte 0x01";
    for (int i = 1; i < count; ++i) {
        array += ",1";
    }
    return "(byte 0x83, byte 0x05, <" + array + "]>, uint16 1)";
}

TEST_F(EngineeringBusTest, CallOfUpTo64KibIsServedAndALargerOneRefused)
{
    startService();
    BusClient hmi(bus().address());
    RawLine line(link());

    EXPECT_EQ(hmi.callEngineering("uart_send_data", argumentsWithArrayOf(65'000)), kDone);
    EXPECT_EQ(line.read(10), (Bytes{0x2A, 0xA2, 0x00, 0x03, 0x83, 0x05, 0x01, 0x00, 0xFF, 0x74}));

    EXPECT_EQ(hmi.callEngineering("uart_send_data", argumentsWithArrayOf(65'536)), kLimitsExceeded);
    EXPECT_EQ(hmi.callEngineering("uart_send_data", argumentsWithArrayOf(1'000'000)), kLimitsExceeded);
    // Nothing was sent for these.
    line.expectExchange(kModeOn, kModeOnReply);
}

TEST_F(EngineeringBusTest, CallThatBringsDescriptorsIsServed)
{
    startService();
    BusClient hmi(bus().address());

    EXPECT_EQ(hmi.callWithDescriptors("com.zent.linux.engineering", 16), kDone);
}

TEST_F(EngineeringBusTest, CallsWithWrongTypesAreRefused)
{
    startService();
    BusClient hmi(bus().address());

    EXPECT_EQ(hmi.callEngineering("uart_send_data", "('83', byte 0x05, <[byte 0x01]>, uint16 1)"), kInvalidArguments);
    EXPECT_EQ(hmi.callEngineering("uart_send_data", "(byte 0x83, byte 0x05, <[byte 0x01]>, byte 1)"),
              kInvalidArguments);
    EXPECT_EQ(hmi.callEngineering("uart_send_data", "(byte 0x83,)"), kInvalidArguments);
    EXPECT_EQ(hmi.callEngineering("auto_test_set_track_index", "(1, 2)"), kInvalidArguments);
    EXPECT_EQ(hmi.callEngineering("no_such_method", "()"), kUnknownMethod);
    RawLine(link()).expectExchange(kModeOn, kModeOnReply);
}

TEST_F(EngineeringBusTest, VariantThatHoldsNoBytesDoesNoHarm)
{
    startService();
    BusClient hmi(bus().address());

    hmi.callEngineering("uart_send_data", "(byte 0x83, byte 0x05, <'text'>, uint16 4)");
    hmi.callEngineering("uart_send_data", "(byte 0x83, byte 0x05, <[1, 2, 3]>, uint16 3)");
    hmi.callEngineering("uart_send_data", "(byte 0x83, byte 0x05, <<[byte 0x01]>>, uint16 1)");

    EXPECT_EQ(hmi.callEngineering("auto_test_set_track_index", "(byte 0, byte 0)"), kDone);
    EXPECT_TRUE(pollLine(kModeOn, kModeOnReply.size(), [](const Bytes& reply) { return reply == kModeOnReply; }));
}

struct TrackReport {
    const char* name;
    const char* arguments;
    Bytes frame;
};

class SetTrackIndexTest : public BenchTest, public testing::WithParamInterface<TrackReport>
{
};

TEST_P(SetTrackIndexTest, ReportsTheTrackToTheStation)
{
    startService();
    BusClient hmi(bus().address());
    RawLine line(link());

    EXPECT_EQ(hmi.callEngineering("auto_test_set_track_index", GetParam().arguments), kDone);

    EXPECT_EQ(line.read(10), GetParam().frame);
}

INSTANTIATE_TEST_SUITE_P(
    EngineeringBus, SetTrackIndexTest,
    testing::Values(
        // 03+83+05+07 = 0092
        TrackReport{"MediumOne", "(byte 1, byte 7)", {0x2A, 0xA2, 0x00, 0x03, 0x83, 0x05, 0x07, 0x00, 0xFF, 0x6E}},
        // 03+83+0D+07 = 009A
        TrackReport{"MediumTwo", "(byte 2, byte 7)", {0x2A, 0xA2, 0x00, 0x03, 0x83, 0x0D, 0x07, 0x00, 0xFF, 0x66}},
        // 03+83+0B+07 = 0098
        TrackReport{"MediumThree", "(byte 3, byte 7)", {0x2A, 0xA2, 0x00, 0x03, 0x83, 0x0B, 0x07, 0x00, 0xFF, 0x68}}),
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace tests
