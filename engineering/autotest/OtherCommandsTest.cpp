#include "tests/support/EngineTest.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using namespace nlohmann::literals;

const nlohmann::json kSource16 = R"({"source": {"current": 16}})"_json;

const std::vector<CommandCase> kCases = {
    {"SetFlag", {0x0E, 0x00, 7}, {}, {}, {}},
    {"SetFlagWithoutFlag", {0x0E, 0x00}, {}, {}, {}},
    {"GetFlagBeforeAnySet", {0x0E, 0x01}, {"8E 01 [00]"}, {}, {}},
    {"GetFlagIgnoresParameters", {0x0E, 0x01, 7}, {"8E 01 [00]"}, {}, {}},

    {"AgingAudio", {0x0E, 0x02, 1}, {}, {}, {"source Request [16,0]"}},
    {"AgingAudioOnSource15", {0x0E, 0x02, 1}, {}, {}, {"source Request [16,0]"}, R"({"source": {"current": 15}})"_json},
    {"AgingAudioOnSource16IsNone", {0x0E, 0x02, 1}, {}, {}, {}, kSource16},
    {"AgingAudioOnSource17", {0x0E, 0x02, 1}, {}, {}, {"source Request [16,0]"}, R"({"source": {"current": 17}})"_json},
    {"AgingAudio0IsNone", {0x0E, 0x02, 0}, {}, {}, {}},
    {"AgingAudio2IsNone", {0x0E, 0x02, 2}, {}, {}, {}},
    {"AgingAudio255IsNone", {0x0E, 0x02, 255}, {}, {}, {}},
    {"AgingAudioIgnoresFurtherBytes", {0x0E, 0x02, 1, 0}, {}, {}, {"source Request [16,0]"}},

    {"Status", {0x0E, 0x03}, {"8E 03 [00]"}, {}, {}},
    {"StatusIgnoresParameters", {0x0E, 0x03, 1}, {"8E 03 [00]"}, {}, {}},

    {"SystemUpdate", {0x0E, 0x05}, {}, {}, {"system_update Request [13]"}},
    {"SystemUpdateIgnoresParameters", {0x0E, 0x05, 1}, {}, {}, {"system_update Request [13]"}},

    {"SelectPage0", {0x0E, 0x06, 0}, {}, {"OnAutoTestSelectPageSignal(0)"}, {}},
    {"SelectPage2", {0x0E, 0x06, 2}, {}, {"OnAutoTestSelectPageSignal(2)"}, {}},
    {"SelectPage255", {0x0E, 0x06, 255}, {}, {"OnAutoTestSelectPageSignal(255)"}, {}},
    {"SelectPageIgnoresFurtherBytes", {0x0E, 0x06, 2, 3}, {}, {"OnAutoTestSelectPageSignal(2)"}, {}},
};

class OtherCommandTest : public CommandTest
{
};

TEST_P(OtherCommandTest, DoesWhatItsRowSays)
{
    sendAndCompare();
}

INSTANTIATE_TEST_SUITE_P(Rows, OtherCommandTest, testing::ValuesIn(kCases), caseName);

class OtherCommandsTest : public EngineTest
{
};

TEST_F(OtherCommandsTest, AFlagIsReadBackAndStaysWithoutANewOne)
{
    startInTestMode();

    station.sendCommand(0x0E, 0x00, {0x07, 0x09});
    station.sendCommand(0x0E, 0x01);
    station.sendCommand(0x0E, 0x00);
    station.sendCommand(0x0E, 0x01);
    station.sendCommand(0x0E, 0x00, {0xFF});
    station.sendCommand(0x0E, 0x01);

    EXPECT_THAT(station.replies(), ElementsAre("8E 01 [07]", "8E 01 [07]", "8E 01 [FF]"));
}

TEST_F(OtherCommandsTest, AFlagThatIsSetLeavesTheStatusAlone)
{
    startInTestMode();

    station.sendCommand(0x0E, 0x00, {0x07});
    station.sendCommand(0x0E, 0x03);

    EXPECT_THAT(station.replies(), ElementsAre("8E 03 [00]"));
}

TEST_F(OtherCommandsTest, TheFlagIsLoggedWithAndWithoutANewOne)
{
    startInTestMode();

    station.sendCommand(0x0E, 0x00);
    station.sendCommand(0x0E, 0x00, {0x07});

    EXPECT_THAT(log.lines(), Contains("DEBUG HandleOtherCommands, m_iFlag = 0"));
    EXPECT_THAT(log.lines(), Contains("DEBUG HandleOtherCommands, m_iFlag = 7"));
}

TEST_F(OtherCommandsTest, AgingAudioMakesSource16Current)
{
    startInTestMode();

    station.sendCommand(0x0E, 0x02, {0x01});
    station.sendCommand(0x0E, 0x02, {0x01});

    EXPECT_EQ(get("/source/current"), 16);
    EXPECT_THAT(calls(), ElementsAre("source Request [16,0]"));
}

TEST_F(OtherCommandsTest, AgingAudioLogsTheCurrentSourceAlsoWhenItIsTheRightOne)
{
    startInTestMode();

    set("/source/current", 9);
    station.sendCommand(0x0E, 0x02, {0x01});
    set("/source/current", 16);
    station.sendCommand(0x0E, 0x02, {0x01});

    EXPECT_THAT(log.lines(), Contains("DEBUG HandleOtherCommands, bg_source = 9"));
    EXPECT_THAT(log.lines(), Contains("DEBUG HandleOtherCommands, bg_source = 16"));
}

TEST_F(OtherCommandsTest, AgingAudioThatIsNotAskedForIsNotLogged)
{
    startInTestMode();

    station.sendCommand(0x0E, 0x02, {0x00});
    station.sendCommand(0x0E, 0x02);

    EXPECT_THAT(log.lines(), Not(Contains(HasSubstr("bg_source"))));
}

TEST_F(OtherCommandsTest, AnAgingSourceThatCannotBeHadIsNoError)
{
    set("/source/available", nlohmann::json::array({1}));
    startInTestMode();

    station.sendCommand(0x0E, 0x02, {0x01});

    EXPECT_THAT(calls(), ElementsAre("source Request [16,0]"));
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(OtherCommandsTest, WithoutASystemUpdateProxyTheRequestIsLoggedAsError)
{
    startInTestMode();
    takeTheHeadUnitAway();

    station.sendCommand(0x0E, 0x05);

    EXPECT_THAT(log.errors(), ElementsAre("ERROR HandleOtherCommands, no system-update proxy"));
    EXPECT_THAT(calls(), IsEmpty());
}

}  // namespace
