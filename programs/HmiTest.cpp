#include "programs/Hmi.h"

#include <gtest/gtest.h>

namespace programs {
namespace {

Signal frameSignal()
{
    return {"uart_data_changed_signal",
            {{"cmd_one", 0x0F}, {"cmd_two", 0x0A}, {"param", {0x01, 0xAB}}, {"param_size", 2}}};
}

Signal selectTrack(int mediaType, int index)
{
    return {"OnAutoTestMediaSelectTrackSignal", {{"media_type", mediaType}, {"track_index", index}}};
}

Signal getTrack(int mediaType)
{
    return {"OnAutoTestGetMediaTrackIndexSignal", {{"media_type", mediaType}}};
}

Reaction reportTrack(std::uint8_t mediaType, std::uint8_t index)
{
    return ReportTrack{{mediaType, index}};
}

TEST(SignalText, NamesEachArgument)
{
    EXPECT_EQ(asText({"OnAutoTestModeChangeSignal", {{"mode", true}}}), "OnAutoTestModeChangeSignal mode=true");
    EXPECT_EQ(asText({"OnAutoTestSetFaderBalanceSignal", {{"fader_value", 10}, {"balance_value", 0}}}),
              "OnAutoTestSetFaderBalanceSignal fader_value=10 balance_value=0");
}

TEST(SignalText, WithoutArgumentsIsTheName)
{
    EXPECT_EQ(asText({"OnAutoTestRequireAgingTestStateSignal"}), "OnAutoTestRequireAgingTestStateSignal");
}

TEST(SignalText, ShowsAFrameInHexadecimal)
{
    EXPECT_EQ(asText(frameSignal()), "uart_data_changed_signal cmd_one=0F cmd_two=0A param=[01 AB] param_size=2");
}

TEST(SignalText, ShowsNoParametersAsEmptyBrackets)
{
    EXPECT_EQ(asText({"uart_data_changed_signal", {{"param", nlohmann::ordered_json::array()}}}),
              "uart_data_changed_signal param=[]");
}

TEST(SignalJson, HasTheSignalFirstThenTheArgumentsByName)
{
    EXPECT_EQ(asJson(frameSignal()),
              R"({"signal":"uart_data_changed_signal","cmd_one":15,"cmd_two":10,"param":[1,171],"param_size":2})");
}

TEST(SignalJson, WithoutArgumentsHasTheSignalOnly)
{
    EXPECT_EQ(asJson({"OnAutoTestRequireAgingTestStateSignal"}),
              R"({"signal":"OnAutoTestRequireAgingTestStateSignal"})");
}

TEST(TrackOption, IsTypeAndIndex)
{
    EXPECT_EQ(parseTrack("3=7"), (Track{3, 7}));
    EXPECT_EQ(parseTrack("255=255"), (Track{255, 255}));
}

class NoTrack : public testing::TestWithParam<const char*>
{
};

TEST_P(NoTrack, IsRefused)
{
    EXPECT_EQ(parseTrack(GetParam()), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(Text, NoTrack,
                         testing::Values("", "=", "1", "1=", "=1", "1=256", "256=1", "-1=1", "1=1 ", "a=b", "1=2=3"));

TEST(Hmi, AnswersWithTrackZeroBeforeOneIsSelected)
{
    Hmi hmi;

    EXPECT_EQ(hmi.react(getTrack(2)), reportTrack(2, 0));
}

TEST(Hmi, AnswersWithTheTrackSelectedOnThatMedium)
{
    Hmi hmi;
    EXPECT_EQ(hmi.react(selectTrack(1, 4)), Reaction{});
    EXPECT_EQ(hmi.react(selectTrack(3, 9)), Reaction{});

    EXPECT_EQ(hmi.react(getTrack(1)), reportTrack(1, 4));
    EXPECT_EQ(hmi.react(getTrack(3)), reportTrack(3, 9));
    EXPECT_EQ(hmi.react(getTrack(2)), reportTrack(2, 0));
}

TEST(Hmi, BeginsWithTheTrackItWasToldAndReplacesItUponSelection)
{
    Hmi hmi;
    hmi.select({255, 255});
    EXPECT_EQ(hmi.react(getTrack(255)), reportTrack(255, 255));

    hmi.react(selectTrack(255, 1));

    EXPECT_EQ(hmi.react(getTrack(255)), reportTrack(255, 1));
}

TEST(Hmi, AppliesAVolumeChange)
{
    Hmi hmi;

    EXPECT_EQ(hmi.react({"OnAutoTestVolumeChangeSignal", {{"value", 33}}}), Reaction(ApplyVolume{33}));
}

TEST(Hmi, OnlyFollowsOtherSignals)
{
    Hmi hmi;

    EXPECT_EQ(hmi.react(frameSignal()), Reaction{});
    EXPECT_EQ(hmi.react({"OnAutoTestRequireAgingTestStateSignal"}), Reaction{});
}

}  // namespace
}  // namespace programs
