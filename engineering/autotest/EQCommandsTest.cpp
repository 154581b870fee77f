#include "tests/support/EngineTest.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using namespace nlohmann::literals;

const nlohmann::json kNoAudio = R"({"audio": {"available": false}})"_json;

const std::vector<CommandCase> kCases = {
    {"SetVolume0", {0x01, 0x00, 0}, {}, {"OnAutoTestVolumeChangeSignal(0)"}, {}},
    {"SetVolume40", {0x01, 0x00, 0x28}, {}, {"OnAutoTestVolumeChangeSignal(40)"}, {}},
    {"SetVolume255", {0x01, 0x00, 0xFF}, {}, {"OnAutoTestVolumeChangeSignal(255)"}, {}},
    {"SetVolumeIgnoresFurtherBytes", {0x01, 0x00, 7, 8}, {}, {"OnAutoTestVolumeChangeSignal(7)"}, {}},
    {"SetVolumeNeedsNoAudioService", {0x01, 0x00, 7}, {}, {"OnAutoTestVolumeChangeSignal(7)"}, {}, kNoAudio},

    // the second output of the query, not the limit of 40
    {"GetVolume", {0x01, 0x01}, {"81 01 [0C]"}, {}, {}},
    {"GetVolume0", {0x01, 0x01}, {"81 01 [00]"}, {}, {}, R"({"audio": {"volume": 0}})"_json},
    {"GetVolume255", {0x01, 0x01}, {"81 01 [FF]"}, {}, {}, R"({"audio": {"volume": 255}})"_json},
    {"GetVolumeIgnoresParameters", {0x01, 0x01, 1, 2}, {"81 01 [0C]"}, {}, {}},
    {"GetVolumeWithoutAudioService", {0x01, 0x01}, {}, {}, {}, kNoAudio},

    {"SetFaderBalance", {0x01, 0x0D, 0x07, 0x0A}, {}, {"OnAutoTestSetFaderBalanceSignal(7, 10)"}, {}},
    {"SetFaderBalance0", {0x01, 0x0D, 0, 0}, {}, {"OnAutoTestSetFaderBalanceSignal(0, 0)"}, {}},
    {"SetFaderBalance255", {0x01, 0x0D, 255, 254}, {}, {"OnAutoTestSetFaderBalanceSignal(255, 254)"}, {}},
    {"SetFaderBalanceIgnoresFurtherBytes", {0x01, 0x0D, 1, 2, 3}, {}, {"OnAutoTestSetFaderBalanceSignal(1, 2)"}, {}},

    // channel 6 and no other
    {"GetMute0", {0x01, 0x13}, {"81 13 [00]"}, {}, {}, R"({"audio": {"mute": {"5": 1, "6": 0, "7": 1}}})"_json},
    {"GetMute1", {0x01, 0x13}, {"81 13 [01]"}, {}, {}, R"({"audio": {"mute": {"5": 0, "6": 1, "7": 0}}})"_json},
    {"GetMute255", {0x01, 0x13}, {"81 13 [FF]"}, {}, {}, R"({"audio": {"mute": {"6": 255}}})"_json},
    {"GetMuteIsOneByte", {0x01, 0x13}, {"81 13 [02]"}, {}, {}, R"({"audio": {"mute": {"6": 258}}})"_json},
    {"GetMuteIgnoresParameters", {0x01, 0x13, 1}, {"81 13 [00]"}, {}, {}},
    {"GetMuteWithoutAudioService", {0x01, 0x13}, {}, {}, {}, kNoAudio},

    {"SetEqSwitch0", {0x01, 0x17, 0}, {}, {"OnAutoTestSetEqSwitchSignal(0)"}, {}},
    {"SetEqSwitch1", {0x01, 0x17, 1}, {}, {"OnAutoTestSetEqSwitchSignal(1)"}, {}},
    {"SetEqSwitch255", {0x01, 0x17, 255}, {}, {"OnAutoTestSetEqSwitchSignal(255)"}, {}},
    {"SetEqSwitchWithoutByteIsOff", {0x01, 0x17}, {}, {"OnAutoTestSetEqSwitchSignal(0)"}, {}},
    {"SetEqSwitchIgnoresFurtherBytes", {0x01, 0x17, 5, 6}, {}, {"OnAutoTestSetEqSwitchSignal(5)"}, {}},

    {"CheckEqSwitchBeforeAnySet", {0x01, 0x18}, {"81 18 [01]"}, {}, {}},
    {"CheckEqSwitchIgnoresParameters", {0x01, 0x18, 0}, {"81 18 [01]"}, {}, {}},
    {"CheckEqSwitchNeedsNoAudioService", {0x01, 0x18}, {"81 18 [01]"}, {}, {}, kNoAudio},
};

class EQCommandTest : public CommandTest
{
};

TEST_P(EQCommandTest, DoesWhatItsRowSays)
{
    sendAndCompare();
}

INSTANTIATE_TEST_SUITE_P(Rows, EQCommandTest, testing::ValuesIn(kCases), caseName);

class EQCommandsTest : public EngineTest
{
};

TEST_F(EQCommandsTest, ReadBacksWithoutAnAudioServiceAreLoggedAsErrors)
{
    set("/audio/available", false);
    startInTestMode();

    station.sendCommand(0x01, 0x01);
    station.sendCommand(0x01, 0x13);

    EXPECT_THAT(log.errors(), ElementsAre("ERROR HandleEQCommands, no audio service, no volume",
                                          "ERROR HandleEQCommands, no audio service, no mute state"));
    EXPECT_THAT(log.lines(), Not(Contains(HasSubstr("hardware_mute_state"))));
}

TEST_F(EQCommandsTest, FaderAndBalanceAreLoggedAtErrorLevel)
{
    startInTestMode();

    station.sendCommand(0x01, 0x0D, {0x07, 0x0A});

    EXPECT_THAT(log.errors(), ElementsAre("ERROR HandleEQCommands, fader_value = 7, balance_value = 10"));
}

TEST_F(EQCommandsTest, FaderWithoutBalanceIsNotLogged)
{
    startInTestMode();

    station.sendCommand(0x01, 0x0D, {0x07});

    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(EQCommandsTest, TheMuteStateIsLogged)
{
    set("/audio/mute/6", 2);
    startInTestMode();

    station.sendCommand(0x01, 0x13);

    EXPECT_THAT(log.lines(), Contains("DEBUG HandleEQCommands, hardware_mute_state = 2"));
}

// WIRE: the mute state is the service's answer, not the one that was reported last.
TEST_F(EQCommandsTest, TheMuteStateIsAskedOfTheServiceAndNotTakenFromItsEvents)
{
    startInTestMode();

    raise("OnAudioMuteStateChanged", {{"state", 1}, {"channel", 6}});
    station.sendCommand(0x01, 0x13);

    EXPECT_THAT(station.replies(), ElementsAre("81 13 [00]"));
}

TEST_F(EQCommandsTest, TheEqSwitchIsReadBackAsItWasSet)
{
    startInTestMode();

    station.sendCommand(0x01, 0x17, {0x05});
    station.sendCommand(0x01, 0x18);

    EXPECT_THAT(hmi.requests(), ElementsAre("OnAutoTestSetEqSwitchSignal(5)"));
    EXPECT_THAT(station.replies(), ElementsAre("81 18 [05]"));
}

// WIRE: 17 [] counts as 17 [00].
TEST_F(EQCommandsTest, AnEqSwitchThatIsSetWithoutAByteIsReadBackAsOff)
{
    startInTestMode();

    station.sendCommand(0x01, 0x17);
    station.sendCommand(0x01, 0x18);

    EXPECT_THAT(station.replies(), ElementsAre("81 18 [00]"));
}

TEST_F(EQCommandsTest, TheEqSwitchIsLoggedWhenItIsSetAndWhenItIsChecked)
{
    startInTestMode();

    station.sendCommand(0x01, 0x17, {0x05});
    station.sendCommand(0x01, 0x18);

    EXPECT_THAT(log.lines(), Contains("DEBUG HandleEQCommands, set EQ switch on = 5"));
    EXPECT_THAT(log.lines(), Contains("DEBUG HandleEQCommands, check EQ switch on = 5"));
    EXPECT_THAT(log.errors(), IsEmpty());
}

}  // namespace
