#include "tests/support/EngineTest.h"

namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using namespace nlohmann::literals;

const nlohmann::json kNoTuner = R"({"tuner": {"available": false}})"_json;
const nlohmann::json kNoMisc = R"({"system_misc": {"available": false}})"_json;

const std::vector<CommandCase> kCases = {
    // Play is followed by band, frequency, service and KYR_TRUE
    {"Play8750", {0x02, 0x00, 0x22, 0x2E}, {}, {}, {"tuner Play [1,8750,0,1]"}},
    {"Play0", {0x02, 0x00, 0x00, 0x00}, {}, {}, {"tuner Play [1,0,0,1]"}},
    {"Play65535", {0x02, 0x00, 0xFF, 0xFF}, {}, {}, {"tuner Play [1,65535,0,1]"}},
    {"PlayHighByteFirst", {0x02, 0x00, 0x01, 0x02}, {}, {}, {"tuner Play [1,258,0,1]"}},
    {"PlayOnTheCurrentBand",
     {0x02, 0x00, 0x02, 0x7F},
     {},
     {},
     {"tuner Play [0,639,0,1]"},
     R"({"tuner": {"band": 0}})"_json},
    {"PlayIgnoresFurtherBytes", {0x02, 0x00, 0x22, 0x2E, 1}, {}, {}, {"tuner Play [1,8750,0,1]"}},
    {"PlayWithoutTuner", {0x02, 0x00, 0x22, 0x2E}, {}, {}, {}, kNoTuner},

    {"GetFrequency", {0x02, 0x01}, {"82 01 [22 2E]"}, {}, {}},
    {"GetFrequencyOfTheCurrentBand", {0x02, 0x01}, {"82 01 [03 DE]"}, {}, {}, R"({"tuner": {"band": 0}})"_json},
    {"GetFrequencyOfAnUnknownBand", {0x02, 0x01}, {"82 01 [00 00]"}, {}, {}, R"({"tuner": {"band": 7}})"_json},
    {"GetFrequency65535", {0x02, 0x01}, {"82 01 [FF FF]"}, {}, {}, R"({"tuner": {"frequency": {"1": 65535}}})"_json},
    {"GetFrequencyHasTwoBytes",  // 70000 is 0x11170
     {0x02, 0x01},
     {"82 01 [11 70]"},
     {},
     {},
     R"({"tuner": {"frequency": {"1": 70000}}})"_json},
    {"GetFrequencyIgnoresParameters", {0x02, 0x01, 1, 1}, {"82 01 [22 2E]"}, {}, {}},
    {"GetFrequencyWithoutTuner", {0x02, 0x01}, {}, {}, {}, kNoTuner},

    {"SwitchBand0", {0x02, 0x02, 0}, {}, {}, {"tuner SwitchBandRequest [1]"}},
    {"SwitchBand1", {0x02, 0x02, 1}, {}, {}, {"tuner SwitchBandRequest [0]"}},
    {"SwitchBand2", {0x02, 0x02, 2}, {}, {}, {"tuner SwitchBandRequest [4]"}},
    {"SwitchBand3", {0x02, 0x02, 3}, {}, {}, {"tuner SwitchBandRequest [4]"}},
    {"SwitchBand4", {0x02, 0x02, 4}, {}, {}, {"tuner SwitchBandRequest [4]"}},
    {"SwitchBand5", {0x02, 0x02, 5}, {}, {}, {"tuner SwitchBandRequest [3]"}},
    {"SwitchBand6", {0x02, 0x02, 6}, {}, {}, {"tuner SwitchBandRequest [4]"}},
    {"SwitchBand9", {0x02, 0x02, 9}, {}, {}, {"tuner SwitchBandRequest [4]"}},
    {"SwitchBand255", {0x02, 0x02, 255}, {}, {}, {"tuner SwitchBandRequest [4]"}},
    {"SwitchBandIgnoresFurtherBytes", {0x02, 0x02, 5, 1}, {}, {}, {"tuner SwitchBandRequest [3]"}},
    {"SwitchBandWithoutTuner", {0x02, 0x02, 5}, {}, {}, {}, kNoTuner},

    {"GetBand1", {0x02, 0x03}, {"82 03 [00]"}, {}, {}, R"({"tuner": {"band": 1}})"_json},
    {"GetBand0", {0x02, 0x03}, {"82 03 [01]"}, {}, {}, R"({"tuner": {"band": 0}})"_json},
    {"GetBand3", {0x02, 0x03}, {"82 03 [05]"}, {}, {}, R"({"tuner": {"band": 3}})"_json},
    {"GetBand2IsEmpty", {0x02, 0x03}, {"82 03 []"}, {}, {}, R"({"tuner": {"band": 2}})"_json},
    {"GetBand4IsEmpty", {0x02, 0x03}, {"82 03 []"}, {}, {}, R"({"tuner": {"band": 4}})"_json},
    {"GetBand5IsEmpty", {0x02, 0x03}, {"82 03 []"}, {}, {}, R"({"tuner": {"band": 5}})"_json},
    {"GetBandBelowTheFirstIsEmpty", {0x02, 0x03}, {"82 03 []"}, {}, {}, R"({"tuner": {"band": -1}})"_json},
    {"GetBandIgnoresParameters", {0x02, 0x03, 4}, {"82 03 [00]"}, {}, {}},
    {"GetBandWithoutTunerIsEmpty", {0x02, 0x03}, {"82 03 []"}, {}, {}, kNoTuner},

    {"SeekDown", {0x02, 0x04, 0}, {}, {}, {"tuner Seek [1,0]"}},
    {"SeekUp", {0x02, 0x04, 1}, {}, {}, {"tuner Seek [1,1]"}},
    {"SeekOnTheCurrentBand", {0x02, 0x04, 1}, {}, {}, {"tuner Seek [0,1]"}, R"({"tuner": {"band": 0}})"_json},
    {"AutoStore", {0x02, 0x04, 2}, {}, {}, {"tuner AutoStore []"}},
    {"Scan", {0x02, 0x04, 3}, {}, {}, {"tuner Scan [1]"}},
    {"ScanOfTheCurrentBand", {0x02, 0x04, 3}, {}, {}, {"tuner Scan [3]"}, R"({"tuner": {"band": 3}})"_json},
    {"TuneAction4IsNone", {0x02, 0x04, 4}, {}, {}, {}},
    {"TuneAction255IsNone", {0x02, 0x04, 255}, {}, {}, {}},
    {"TuneActionIgnoresFurtherBytes", {0x02, 0x04, 2, 1}, {}, {}, {"tuner AutoStore []"}},
    {"TuneActionWithoutTuner", {0x02, 0x04, 1}, {}, {}, {}, kNoTuner},

    {"SetAf0", {0x02, 0x0B, 0}, {}, {}, {"tuner SwitchRdsAFSetting [0]"}},
    {"SetAf1", {0x02, 0x0B, 1}, {}, {}, {"tuner SwitchRdsAFSetting [1]"}},
    {"SetAf255", {0x02, 0x0B, 255}, {}, {}, {"tuner SwitchRdsAFSetting [255]"}},
    {"SetAfIgnoresFurtherBytes", {0x02, 0x0B, 1, 0}, {}, {}, {"tuner SwitchRdsAFSetting [1]"}},
    {"SetAfWithoutTuner", {0x02, 0x0B, 1}, {}, {}, {}, kNoTuner},

    {"SetTa0", {0x02, 0x0C, 0}, {}, {}, {"tuner SwitchRdsTASetting [0]"}},
    {"SetTa1", {0x02, 0x0C, 1}, {}, {}, {"tuner SwitchRdsTASetting [1]"}},
    {"SetTa255", {0x02, 0x0C, 255}, {}, {}, {"tuner SwitchRdsTASetting [255]"}},
    {"SetTaIgnoresFurtherBytes", {0x02, 0x0C, 1, 0}, {}, {}, {"tuner SwitchRdsTASetting [1]"}},
    {"SetTaWithoutTuner", {0x02, 0x0C, 1}, {}, {}, {}, kNoTuner},

    // the other antenna stands at the opposite
    {"RadioAntenna4",
     {0x02, 0x12},
     {"82 12 [01]"},
     {},
     {},
     R"({"system_misc": {"radio_antenna": 4, "dab_antenna": 0}})"_json},
    {"RadioAntenna3", {0x02, 0x12}, {"82 12 [00]"}, {}, {}, R"({"system_misc": {"radio_antenna": 3}})"_json},
    {"RadioAntenna5", {0x02, 0x12}, {"82 12 [00]"}, {}, {}, R"({"system_misc": {"radio_antenna": 5}})"_json},
    {"RadioAntenna0", {0x02, 0x12}, {"82 12 [00]"}, {}, {}, R"({"system_misc": {"radio_antenna": 0}})"_json},
    {"RadioAntenna260", {0x02, 0x12}, {"82 12 [00]"}, {}, {}, R"({"system_misc": {"radio_antenna": 260}})"_json},
    {"RadioAntennaIgnoresParameters", {0x02, 0x12, 0}, {"82 12 [01]"}, {}, {}},
    {"RadioAntennaWithoutSystemMisc", {0x02, 0x12}, {"82 12 [00]"}, {}, {}, kNoMisc},
    {"RadioAntennaNeedsNoTuner", {0x02, 0x12}, {"82 12 [01]"}, {}, {}, kNoTuner},

    {"DabAntenna4",
     {0x02, 0x13},
     {"82 13 [01]"},
     {},
     {},
     R"({"system_misc": {"radio_antenna": 0, "dab_antenna": 4}})"_json},
    {"DabAntenna3", {0x02, 0x13}, {"82 13 [00]"}, {}, {}, R"({"system_misc": {"dab_antenna": 3}})"_json},
    {"DabAntenna5", {0x02, 0x13}, {"82 13 [00]"}, {}, {}, R"({"system_misc": {"dab_antenna": 5}})"_json},
    {"DabAntenna0", {0x02, 0x13}, {"82 13 [00]"}, {}, {}, R"({"system_misc": {"dab_antenna": 0}})"_json},
    {"DabAntennaIgnoresParameters", {0x02, 0x13, 0}, {"82 13 [01]"}, {}, {}},
    {"DabAntennaWithoutSystemMisc", {0x02, 0x13}, {"82 13 [00]"}, {}, {}, kNoMisc},
    {"DabAntennaNeedsNoTuner", {0x02, 0x13}, {"82 13 [01]"}, {}, {}, kNoTuner},

    {"TaStateBeforeAnyReport", {0x02, 0x17}, {"82 17 [00]"}, {}, {}},
    {"TaStateIgnoresParameters", {0x02, 0x17, 1}, {"82 17 [00]"}, {}, {}},
    {"TaStateNeedsNoTuner", {0x02, 0x17}, {"82 17 [00]"}, {}, {}, kNoTuner},
    {"FmFrequencyBeforeAnyReport", {0x02, 0x18}, {"82 18 [00 00 00 00]"}, {}, {}},
    {"FmFrequencyIgnoresParameters", {0x02, 0x18, 1, 2, 3, 4}, {"82 18 [00 00 00 00]"}, {}, {}},
    {"FmFrequencyNeedsNoTuner", {0x02, 0x18}, {"82 18 [00 00 00 00]"}, {}, {}, kNoTuner},
};

class TunerCommandTest : public CommandTest
{
};

TEST_P(TunerCommandTest, DoesWhatItsRowSays)
{
    sendAndCompare();
}

INSTANTIATE_TEST_SUITE_P(Rows, TunerCommandTest, testing::ValuesIn(kCases), caseName);

class TunerCommandsTest : public EngineTest
{
public:
    std::string traceOf(std::uint8_t command, const std::vector<std::uint8_t>& params = {})
    {
        return printedBy([&] { station.sendCommand(0x02, command, params); });
    }
};

TEST_F(TunerCommandsTest, APlayedFrequencyIsReadBack)
{
    startInTestMode();

    station.sendCommand(0x02, 0x00, {0x24, 0xFE});  // 9470
    station.sendCommand(0x02, 0x01);

    EXPECT_THAT(station.replies(), ElementsAre("82 01 [24 FE]"));
}

TEST_F(TunerCommandsTest, APlayedFrequencyOfBandOneIsTheLastFmFrequencyOnceTheTunerHasReportedIt)
{
    startInTestMode();

    station.sendCommand(0x02, 0x00, {0x24, 0xFE});  // 9470
    unit.events().drain();
    station.sendCommand(0x02, 0x18);

    EXPECT_THAT(station.replies(), ElementsAre("82 18 [00 00 24 FE]"));
}

TEST_F(TunerCommandsTest, SeekingUpStopsAtTheNextHigherStation)
{
    startInTestMode();

    station.sendCommand(0x02, 0x04, {0x01});
    unit.events().drain();
    station.sendCommand(0x02, 0x01);
    station.sendCommand(0x02, 0x18);

    EXPECT_THAT(station.replies(), ElementsAre("82 01 [24 FE]", "82 18 [00 00 24 FE]"));  // 9470
}

TEST_F(TunerCommandsTest, SeekingDownFromTheLowestStationGoesRoundToTheHighest)
{
    startInTestMode();

    station.sendCommand(0x02, 0x04, {0x00});
    station.sendCommand(0x02, 0x01);

    EXPECT_THAT(station.replies(), ElementsAre("82 01 [27 7E]"));  // 10110
}

TEST_F(TunerCommandsTest, ASwitchedBandIsReadBack)
{
    startInTestMode();

    station.sendCommand(0x02, 0x02, {0x01});
    station.sendCommand(0x02, 0x03);
    station.sendCommand(0x02, 0x02, {0x05});
    station.sendCommand(0x02, 0x03);

    EXPECT_THAT(station.replies(), ElementsAre("82 03 [01]", "82 03 [05]"));
}

// WIRE: the band mappings are not inverses.
TEST_F(TunerCommandsTest, CodesTwoToFourSelectABandThatReportsNothing)
{
    startInTestMode();

    for (const std::uint8_t code : {0x02, 0x03, 0x04}) {
        station.sendCommand(0x02, 0x02, {code});
        station.sendCommand(0x02, 0x03);
    }

    EXPECT_THAT(calls(), ElementsAre("tuner SwitchBandRequest [4]", "tuner SwitchBandRequest [4]",
                                     "tuner SwitchBandRequest [4]"));
    EXPECT_THAT(station.replies(), ElementsAre("82 03 []", "82 03 []", "82 03 []"));
}

TEST_F(TunerCommandsTest, AfAndTaAreSetEachForItself)
{
    startInTestMode();

    station.sendCommand(0x02, 0x0B, {0x01});
    station.sendCommand(0x02, 0x0C, {0x02});

    EXPECT_EQ(get("/tuner/rds_af"), 1);
    EXPECT_EQ(get("/tuner/rds_ta"), 2);
}

// WIRE: an empty 82 03 tells "no tuner" from "no answer".
TEST_F(TunerCommandsTest, WithoutATunerOnlyGetBandAnswersAndEachIsLoggedAsError)
{
    unit.mergeState(kNoTuner);
    startInTestMode();

    station.sendCommand(0x02, 0x00, {0x22, 0x2E});
    station.sendCommand(0x02, 0x01);
    station.sendCommand(0x02, 0x02, {0x05});
    station.sendCommand(0x02, 0x03);
    station.sendCommand(0x02, 0x04, {0x00});
    station.sendCommand(0x02, 0x0B, {0x01});
    station.sendCommand(0x02, 0x0C, {0x01});

    EXPECT_THAT(station.replies(), ElementsAre("82 03 []"));
    EXPECT_THAT(log.errors(), testing::SizeIs(7));
    EXPECT_THAT(log.errors(), Each("ERROR HandleTunerCommands, m_TuerService is null..."));
}

TEST_F(TunerCommandsTest, ACommandThatIsTooShortIsNotCheckedForATuner)
{
    unit.mergeState(kNoTuner);
    startInTestMode();

    station.sendCommand(0x02, 0x00, {0x22});
    station.sendCommand(0x02, 0x02);
    station.sendCommand(0x02, 0x04);
    station.sendCommand(0x02, 0x0B);
    station.sendCommand(0x02, 0x0C);

    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(TunerCommandsTest, WithoutASystemMiscProxyTheAntennasAreLoggedAsErrors)
{
    unit.mergeState(kNoMisc);
    startInTestMode();

    station.sendCommand(0x02, 0x12);
    station.sendCommand(0x02, 0x13);

    EXPECT_THAT(log.errors(),
                ElementsAre("ERROR HandleTunerCommands, no system-misc proxy, radio antenna counts as bad",
                            "ERROR HandleTunerCommands, no system-misc proxy, DAB antenna counts as bad"));
}

TEST_F(TunerCommandsTest, ATuneActionLogsTheBandAlsoWhenItDoesNothing)
{
    set("/tuner/band", 3);
    startInTestMode();

    station.sendCommand(0x02, 0x04, {0x04});

    EXPECT_THAT(log.lines(), Contains("INFO HandleTunerCommands, band = 3"));
    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(TunerCommandsTest, OnlyTheTuneActionLogsTheBand)
{
    startInTestMode();

    station.sendCommand(0x02, 0x00, {0x22, 0x2E});
    station.sendCommand(0x02, 0x01);
    station.sendCommand(0x02, 0x02, {0x00});
    station.sendCommand(0x02, 0x03);
    station.sendCommand(0x02, 0x0B, {0x01});
    station.sendCommand(0x02, 0x0C, {0x01});
    station.sendCommand(0x02, 0x12);
    station.sendCommand(0x02, 0x13);

    EXPECT_THAT(log.lines(), Not(Contains(HasSubstr("HandleTunerCommands"))));
}

TEST_F(TunerCommandsTest, WhatTheTunerIsAskedIsTraced)
{
    startInTestMode();

    EXPECT_EQ(traceOf(0x00, {0x22, 0x2E}), "[auto test],m_TuerService->Play(1, 8750, 0, KYR_TRUE)\n");
    EXPECT_EQ(traceOf(0x01), "[auto test], Get frequence, band = 1, freq = 8750\n");
    EXPECT_EQ(traceOf(0x02, {0x05}), "[auto test], m_TuerService->SwitchBandRequest(3)\n");
    EXPECT_EQ(traceOf(0x03), "[auto test], Send the band  = 3\n");
    EXPECT_EQ(traceOf(0x04, {0x01}), "");
    EXPECT_EQ(traceOf(0x0B, {0xFE}), "[auto test], m_TuerService->SwitchRdsAFSetting(254)\n");
    EXPECT_EQ(traceOf(0x0C, {0xFD}), "[auto test], m_TuerService->SwitchRdsTASetting(253)\n");
    EXPECT_EQ(traceOf(0x17), "");
    EXPECT_EQ(traceOf(0x18), "");
}

TEST_F(TunerCommandsTest, AntennasAreTracedAsTheProxyReportsThem)
{
    set("/system_misc/radio_antenna", 3);
    set("/system_misc/dab_antenna", 5);
    startInTestMode();

    EXPECT_EQ(traceOf(0x12), "[auto test], radio_ant_state = 3\n");
    EXPECT_EQ(traceOf(0x13), "[auto test], dab_ant_state = 5\n");
}

TEST_F(TunerCommandsTest, WithoutATunerOnlyGetBandTracesAndNamesBandFour)
{
    unit.mergeState(kNoTuner);
    startInTestMode();

    EXPECT_EQ(traceOf(0x00, {0x22, 0x2E}), "");
    EXPECT_EQ(traceOf(0x01), "");
    EXPECT_EQ(traceOf(0x02, {0x05}), "");
    EXPECT_EQ(traceOf(0x03), "[auto test], Send the band  = 4\n");
    EXPECT_EQ(traceOf(0x0B, {0x01}), "");
    EXPECT_EQ(traceOf(0x0C, {0x01}), "");
}

TEST_F(TunerCommandsTest, WithoutSystemMiscBothAntennasTraceZero)
{
    unit.mergeState(kNoMisc);
    startInTestMode();

    EXPECT_EQ(traceOf(0x12), "[auto test], radio_ant_state = 0\n");
    EXPECT_EQ(traceOf(0x13), "[auto test], dab_ant_state = 0\n");
}

TEST_F(TunerCommandsTest, TheTaStateIsTheLowestByteOfTheLastReport)
{
    startInTestMode();

    raise("OnTAChanged", {{"freq", 8750}, {"active", 1}});
    station.sendCommand(0x02, 0x17);
    raise("OnTAChanged", {{"freq", 8750}, {"active", 0x0102}});
    station.sendCommand(0x02, 0x17);
    raise("OnTAChanged", {{"freq", 8750}, {"active", 0}});
    station.sendCommand(0x02, 0x17);

    EXPECT_THAT(station.replies(), ElementsAre("82 17 [01]", "82 17 [02]", "82 17 [00]"));
}

TEST_F(TunerCommandsTest, TheLastFmFrequencyHasFourBytesHighestFirst)
{
    startInTestMode();

    raise("OnFrequencyChanged", {{"band", 1}, {"value", 7}, {"frequency", 0x01020304}});
    station.sendCommand(0x02, 0x18);

    EXPECT_THAT(station.replies(), ElementsAre("82 18 [01 02 03 04]"));
}

TEST_F(TunerCommandsTest, AFrequencyOfAnotherBandIsNoFmFrequency)
{
    startInTestMode();

    raise("OnFrequencyChanged", {{"band", 0}, {"value", 0}, {"frequency", 9000}});
    station.sendCommand(0x02, 0x18);

    EXPECT_THAT(station.replies(), ElementsAre("82 18 [00 00 00 00]"));
}

}  // namespace
