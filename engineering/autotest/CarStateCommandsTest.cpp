#include "tests/support/EngineTest.h"

namespace {

using testing::AnyOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using namespace nlohmann::literals;

const nlohmann::json kNoPower = R"({"power": {"available": false}})"_json;
const nlohmann::json kNoMisc = R"({"system_misc": {"available": false}})"_json;
const nlohmann::json kStatus15 = R"({"power": {"status": 15}})"_json;
const nlohmann::json kStatus16 = R"({"power": {"status": 16}})"_json;
const nlohmann::json kStatus17 = R"({"power": {"status": 17}})"_json;
const nlohmann::json kStatus18 = R"({"power": {"status": 18}})"_json;

const std::vector<CommandCase> kCases = {
    {"State0", {0x09, 0x00}, {"89 00 [00]"}, {}, {}, R"({"system_misc": {"state": 0}})"_json},
    {"State1", {0x09, 0x00}, {"89 00 [01]"}, {}, {}, R"({"system_misc": {"state": 1}})"_json},
    {"State2", {0x09, 0x00}, {"89 00 [01]"}, {}, {}, R"({"system_misc": {"state": 2}})"_json},
    {"State256", {0x09, 0x00}, {"89 00 [01]"}, {}, {}, R"({"system_misc": {"state": 256}})"_json},
    {"StateBelow0", {0x09, 0x00}, {"89 00 [01]"}, {}, {}, R"({"system_misc": {"state": -1}})"_json},
    {"StateIgnoresParameters", {0x09, 0x00, 1}, {"89 00 [00]"}, {}, {}},
    {"StateWithoutSystemMisc", {0x09, 0x00}, {"89 00 [00]"}, {}, {}, kNoMisc},

    {"LightType1", {0x09, 0x06}, {"89 06 [01]"}, {}, {}, R"({"power": {"screen_light_type": 1}})"_json},
    {"LightType2", {0x09, 0x06}, {"89 06 [00]"}, {}, {}, R"({"power": {"screen_light_type": 2}})"_json},
    {"LightType0", {0x09, 0x06}, {"89 06 [00]"}, {}, {}, R"({"power": {"screen_light_type": 0}})"_json},
    {"LightType257", {0x09, 0x06}, {"89 06 [00]"}, {}, {}, R"({"power": {"screen_light_type": 257}})"_json},
    {"LightTypeIgnoresParameters", {0x09, 0x06, 0}, {"89 06 [01]"}, {}, {}},
    {"LightTypeWithoutPowerProxyIsEmpty", {0x09, 0x06}, {"89 06 []"}, {}, {}, kNoPower},

    {"SpeedBeforeAnyReport", {0x09, 0x0B}, {"89 0B [00 00]"}, {}, {}},
    {"SpeedIgnoresParameters", {0x09, 0x0B, 1, 2}, {"89 0B [00 00]"}, {}, {}},

    {"ShutDown", {0x09, 0x0C}, {}, {}, {"power SetPowerState [3]"}},
    {"ShutDownIgnoresParameters", {0x09, 0x0C, 0}, {}, {}, {"power SetPowerState [3]"}},
    {"ShutDownWithoutPowerProxy", {0x09, 0x0C}, {}, {}, {}, kNoPower},

    // only from the opposite status
    {"PowerModeOnFrom17", {0x09, 0x10, 1}, {}, {}, {"power SwitchPowerMode [1]"}, kStatus17},
    {"PowerModeOnFrom16IsNone", {0x09, 0x10, 1}, {}, {}, {}, kStatus16},
    {"PowerModeOnFrom15IsNone", {0x09, 0x10, 1}, {}, {}, {}, kStatus15},
    {"PowerModeOnFrom18IsNone", {0x09, 0x10, 1}, {}, {}, {}, kStatus18},
    {"PowerModeOffFrom16", {0x09, 0x10, 0}, {}, {}, {"power SwitchPowerMode [0]"}, kStatus16},
    {"PowerModeOffFrom17IsNone", {0x09, 0x10, 0}, {}, {}, {}, kStatus17},
    {"PowerModeOffFrom15IsNone", {0x09, 0x10, 0}, {}, {}, {}, kStatus15},
    {"PowerModeOffFrom18IsNone", {0x09, 0x10, 0}, {}, {}, {}, kStatus18},
    {"PowerMode2From16IsNone", {0x09, 0x10, 2}, {}, {}, {}, kStatus16},
    {"PowerMode2From17IsNone", {0x09, 0x10, 2}, {}, {}, {}, kStatus17},
    {"PowerMode255From16IsNone", {0x09, 0x10, 255}, {}, {}, {}, kStatus16},
    {"PowerMode255From17IsNone", {0x09, 0x10, 255}, {}, {}, {}, kStatus17},
    {"PowerModeWithoutModeFrom16IsNone", {0x09, 0x10}, {}, {}, {}, kStatus16},
    {"PowerModeWithoutModeFrom17IsNone", {0x09, 0x10}, {}, {}, {}, kStatus17},
    {"PowerModeIgnoresFurtherBytes", {0x09, 0x10, 1, 0}, {}, {}, {"power SwitchPowerMode [1]"}, kStatus17},
    {"PowerModeWithoutPowerProxy", {0x09, 0x10, 0}, {}, {}, {}, kNoPower},
};

class CarStateCommandTest : public CommandTest
{
};

TEST_P(CarStateCommandTest, DoesWhatItsRowSays)
{
    sendAndCompare();
}

INSTANTIATE_TEST_SUITE_P(Rows, CarStateCommandTest, testing::ValuesIn(kCases), caseName);

class CarStateCommandsTest : public EngineTest
{
};

// WIRE: two bytes, highest first; 70000 is 0x11170 and loses its highest bit.
TEST_F(CarStateCommandsTest, TheSpeedIsTheLowestTwoBytesOfTheLastReport)
{
    startInTestMode();

    for (const unsigned int speed : {0x1234U, 70000U, 65535U, 65536U, 4294967295U, 0U}) {
        raise("OnCarSpeedChange", {{"speed", speed}});
        station.sendCommand(0x09, 0x0B);
    }

    EXPECT_THAT(station.replies(), ElementsAre("89 0B [12 34]",    // 0x1234
                                               "89 0B [11 70]",    // 70000
                                               "89 0B [FF FF]",    // 65535
                                               "89 0B [00 00]",    // 65536
                                               "89 0B [FF FF]",    // 4294967295
                                               "89 0B [00 00]"));  // 0
}

TEST_F(CarStateCommandsTest, TheSpeedIsNeverHalfOfOneReportAndHalfOfAnother)
{
    startInTestMode();

    for (int i = 0; i < 200; ++i) {
        unit.raise("OnCarSpeedChange", {{"speed", i % 2 == 0 ? 0x0101 : 0x0202}});
        station.sendCommand(0x09, 0x0B);
    }

    EXPECT_THAT(station.replies(), testing::SizeIs(200));
    EXPECT_THAT(station.replies(), Each(AnyOf("89 0B [00 00]", "89 0B [01 01]", "89 0B [02 02]")));
}

TEST_F(CarStateCommandsTest, SpeedAndLightTypeAreLogged)
{
    set("/power/screen_light_type", 2);
    startInTestMode();
    raise("OnCarSpeedChange", {{"speed", 70000}});

    station.sendCommand(0x09, 0x0B);
    station.sendCommand(0x09, 0x06);

    EXPECT_THAT(log.lines(), Contains("DEBUG HandleCarState, m_iCarSpeed = 70000"));
    EXPECT_THAT(log.lines(), Contains("DEBUG GetCurScreenLightType, type = 2"));
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(CarStateCommandsTest, AShutDownIsLoggedAndReachesTheUnit)
{
    startInTestMode();

    station.sendCommand(0x09, 0x0C);

    EXPECT_EQ(get("/power/shut_down"), true);
    EXPECT_THAT(log.lines(), Contains("DEBUG HandleCarState, SetPowerState(KYRPower::PS_SHUT_DOWN)"));
}

TEST_F(CarStateCommandsTest, ThePowerStatusIsLoggedAlsoWhenTheModeStays)
{
    startInTestMode();

    set("/power/status", 16);
    station.sendCommand(0x09, 0x10, {0x01});
    set("/power/status", 17);
    station.sendCommand(0x09, 0x10, {0x00});

    EXPECT_THAT(log.lines(), Contains("DEBUG HandleCarState, power_status = 16"));
    EXPECT_THAT(log.lines(), Contains("DEBUG HandleCarState, power_status = 17"));
    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(CarStateCommandsTest, AnUnknownPowerModeDoesNotAskForTheStatus)
{
    startInTestMode();

    station.sendCommand(0x09, 0x10, {0x02});
    station.sendCommand(0x09, 0x10);

    EXPECT_THAT(log.lines(), Not(Contains(HasSubstr("power_status"))));
}

TEST_F(CarStateCommandsTest, ARepeatedPowerModeRequestSwitchesOnce)
{
    startInTestMode();

    station.sendCommand(0x09, 0x10, {0x00});
    station.sendCommand(0x09, 0x10, {0x00});
    station.sendCommand(0x09, 0x10, {0x01});
    station.sendCommand(0x09, 0x10, {0x01});

    EXPECT_THAT(calls(), ElementsAre("power SwitchPowerMode [0]", "power SwitchPowerMode [1]"));
    EXPECT_EQ(get("/power/status"), 16);
}

// WIRE: without a power proxy 89 06 has no parameter.
TEST_F(CarStateCommandsTest, WithoutAPowerProxyOnlyTheLightTypeAnswersAndEachIsLoggedAsError)
{
    unit.mergeState(kNoPower);
    startInTestMode();

    station.sendCommand(0x09, 0x06);
    station.sendCommand(0x09, 0x0C);
    station.sendCommand(0x09, 0x10, {0x01});
    station.sendCommand(0x09, 0x10, {0x00});

    EXPECT_THAT(station.replies(), ElementsAre("89 06 []"));
    EXPECT_THAT(log.errors(), ElementsAre("ERROR HandleCarState, no power proxy, no screen light type",
                                          "ERROR HandleCarState, no power proxy, not shut down",
                                          "ERROR HandleCarState, no power proxy, power mode not switched",
                                          "ERROR HandleCarState, no power proxy, power mode not switched"));
    EXPECT_THAT(log.lines(), Not(Contains(HasSubstr("PS_SHUT_DOWN"))));
}

TEST_F(CarStateCommandsTest, WithoutASystemMiscProxyTheStateIsLoggedAsError)
{
    unit.mergeState(kNoMisc);
    startInTestMode();

    station.sendCommand(0x09, 0x00);

    EXPECT_THAT(log.errors(), ElementsAre("ERROR HandleCarState, no system-misc proxy, its state counts as 0"));
}

}  // namespace
