#include "platform/runtime/TimerService.h"
#include "tests/support/EngineTest.h"

namespace {

using std::chrono::milliseconds;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using namespace nlohmann::literals;

const nlohmann::json kNoPower = R"({"power": {"available": false}})"_json;
const nlohmann::json kNoMisc = R"({"system_misc": {"available": false}})"_json;

const std::vector<CommandCase> kCases = {
    {"Echo0A", {0x06, 0x0A, 0x5A}, {"86 0A [5A]"}, {}, {}},
    {"Echo0A0", {0x06, 0x0A, 0}, {"86 0A [00]"}, {}, {}},
    {"Echo0A255", {0x06, 0x0A, 255}, {"86 0A [FF]"}, {}, {}},
    {"Echo0AWithoutByteIsEmpty", {0x06, 0x0A}, {"86 0A []"}, {}, {}},
    {"Echo0AIgnoresFurtherBytes", {0x06, 0x0A, 1, 2, 3}, {"86 0A [01]"}, {}, {}},

    {"SetKeyFeedback0", {0x06, 0x0B, 0}, {"86 0B [00]"}, {}, {}},
    {"SetKeyFeedback1", {0x06, 0x0B, 1}, {"86 0B [01]"}, {}, {}},
    {"SetKeyFeedback255", {0x06, 0x0B, 255}, {"86 0B [FF]"}, {}, {}},
    {"SetKeyFeedbackWithoutByteIsEmpty", {0x06, 0x0B}, {"86 0B []"}, {}, {}},
    {"SetKeyFeedbackIgnoresFurtherBytes", {0x06, 0x0B, 5, 0}, {"86 0B [05]"}, {}, {}},

    {"GetKeyFeedbackBeforeAnySet", {0x06, 0x10}, {"86 10 [00]"}, {}, {}},
    {"GetKeyFeedbackIgnoresParameters", {0x06, 0x10, 1}, {"86 10 [00]"}, {}, {}},

    {"Echo12", {0x06, 0x12, 0x5A}, {"86 12 [5A]"}, {}, {}},
    {"Echo12Of0", {0x06, 0x12, 0}, {"86 12 [00]"}, {}, {}},
    {"Echo12Of255", {0x06, 0x12, 255}, {"86 12 [FF]"}, {}, {}},
    {"Echo12WithoutByteIsEmpty", {0x06, 0x12}, {"86 12 []"}, {}, {}},
    {"Echo12IgnoresFurtherBytes", {0x06, 0x12, 1, 2, 3}, {"86 12 [01]"}, {}, {}},

    // in this order
    {"FactorySettings",
     {0x06, 0x13, 1},
     {},
     {},
     {"system_misc RestoreFactorySettings []", "file_manager ClearUserData []"}},
    {"FactorySettings0IsNone", {0x06, 0x13, 0}, {}, {}, {}},
    {"FactorySettings2IsNone", {0x06, 0x13, 2}, {}, {}, {}},
    {"FactorySettings255IsNone", {0x06, 0x13, 255}, {}, {}, {}},
    {"FactorySettingsIgnoresFurtherBytes",
     {0x06, 0x13, 1, 0},
     {},
     {},
     {"system_misc RestoreFactorySettings []", "file_manager ClearUserData []"}},
    {"FactorySettingsWithoutSystemMisc", {0x06, 0x13, 1}, {}, {}, {"file_manager ClearUserData []"}, kNoMisc},
    {"FactorySettingsNeedNoPowerProxyYet",
     {0x06, 0x13, 1},
     {},
     {},
     {"system_misc RestoreFactorySettings []", "file_manager ClearUserData []"},
     kNoPower},

    {"PowerState0", {0x06, 0x14}, {"86 14 [00]"}, {}, {}, R"({"power": {"state": 0}})"_json},
    {"PowerState3", {0x06, 0x14}, {"86 14 [03]"}, {}, {}, R"({"power": {"state": 3}})"_json},
    {"PowerState255", {0x06, 0x14}, {"86 14 [FF]"}, {}, {}, R"({"power": {"state": 255}})"_json},
    {"PowerStateIsTheLowestByte", {0x06, 0x14}, {"86 14 [02]"}, {}, {}, R"({"power": {"state": 258}})"_json},
    {"PowerStateIgnoresParameters", {0x06, 0x14, 1}, {"86 14 [00]"}, {}, {}},
    {"PowerStateWithoutPowerProxy", {0x06, 0x14}, {}, {}, {}, kNoPower},
};

class HardKeyAndDisplayCommandTest : public CommandTest
{
};

TEST_P(HardKeyAndDisplayCommandTest, DoesWhatItsRowSays)
{
    sendAndCompare();
}

INSTANTIATE_TEST_SUITE_P(Rows, HardKeyAndDisplayCommandTest, testing::ValuesIn(kCases), caseName);

class HardKeyAndDisplayCommandsTest : public EngineTest
{
};

TEST_F(HardKeyAndDisplayCommandsTest, EveryCommandIsLoggedAlsoAnUnknownOne)
{
    startInTestMode();

    station.sendCommand(0x06, 0x10);
    station.sendCommand(0x06, 0x13, {0x02, 0x01});
    station.sendCommand(0x06, 0xFF, {0x01});

    EXPECT_THAT(log.lines(), Contains("DEBUG HandleHardKeyAndDisplay, cmd = 16, param_len = 0"));
    EXPECT_THAT(log.lines(), Contains("DEBUG HandleHardKeyAndDisplay, cmd = 19, param_len = 2"));
    EXPECT_THAT(log.lines(), Contains("DEBUG HandleHardKeyAndDisplay, cmd = 255, param_len = 1"));
}

TEST_F(HardKeyAndDisplayCommandsTest, AnEchoLogsItsByte)
{
    startInTestMode();

    station.sendCommand(0x06, 0x0A, {0x15, 0x01});
    station.sendCommand(0x06, 0x12, {0x16});

    EXPECT_THAT(log.lines(), Contains("DEBUG HandleHardKeyAndDisplay, param[0] = 21"));
    EXPECT_THAT(log.lines(), Contains("DEBUG HandleHardKeyAndDisplay, param[0] = 22"));
}

TEST_F(HardKeyAndDisplayCommandsTest, OnlyAnEchoWithAByteLogsOne)
{
    startInTestMode();

    station.sendCommand(0x06, 0x0A);
    station.sendCommand(0x06, 0x12);
    station.sendCommand(0x06, 0x0B, {0x01});
    station.sendCommand(0x06, 0x13, {0x02});

    EXPECT_THAT(log.lines(), Not(Contains(HasSubstr("param[0]"))));
}

TEST_F(HardKeyAndDisplayCommandsTest, KeyFeedbackIsReadBackAndKeysAreReportedUntilItIsZero)
{
    startInTestMode();

    station.sendCommand(0x06, 0x0B, {0x05});
    station.sendCommand(0x06, 0x10);
    engine().FeedBackKeyEvent(static_cast<E_KeyVKey>(64), static_cast<E_KeyStatus>(16));
    station.sendCommand(0x06, 0x0B, {0x00});
    station.sendCommand(0x06, 0x10);
    engine().FeedBackKeyEvent(static_cast<E_KeyVKey>(64), static_cast<E_KeyStatus>(16));

    EXPECT_THAT(station.replies(), ElementsAre("86 0B [05]", "86 10 [05]",
                                               "86 11 [25 04]",  // key 64 is 37
                                               "86 0B [00]", "86 10 [00]"));
}

TEST_F(HardKeyAndDisplayCommandsTest, KeyFeedbackWithoutAByteStaysAsItIs)
{
    startInTestMode();

    station.sendCommand(0x06, 0x0B, {0x05});
    station.sendCommand(0x06, 0x0B);
    station.sendCommand(0x06, 0x10);

    EXPECT_THAT(station.replies(), ElementsAre("86 0B [05]", "86 0B []", "86 10 [05]"));
}

TEST_F(HardKeyAndDisplayCommandsTest, AnEchoDoesNotSetKeyFeedback)
{
    startInTestMode();

    station.sendCommand(0x06, 0x0A, {0x01});
    station.sendCommand(0x06, 0x12, {0x01});
    station.sendCommand(0x06, 0x10);

    EXPECT_THAT(station.replies(), ElementsAre("86 0A [01]", "86 12 [01]", "86 10 [00]"));
}

TEST_F(HardKeyAndDisplayCommandsTest, WithoutAPowerProxyThePowerStateIsLoggedAsError)
{
    unit.mergeState(kNoPower);
    startInTestMode();

    station.sendCommand(0x06, 0x14);

    EXPECT_THAT(log.errors(), ElementsAre("ERROR HandleHardKeyAndDisplay, no power proxy, no power state"));
}

/// The restart that follows the factory settings a second later.
class FactorySettingsRestartTest : public HardKeyAndDisplayCommandsTest
{
};

TEST_F(FactorySettingsRestartTest, ComesAfterASecondAndOnce)
{
    startInTestMode();

    station.sendCommand(0x06, 0x13, {0x01});
    unit.calls().clear();
    timers.advance(milliseconds(999));
    EXPECT_THAT(calls(), IsEmpty());

    timers.advance(milliseconds(1));
    EXPECT_THAT(calls(), ElementsAre("power RestartSystem []"));

    timers.advance(milliseconds(10'000));
    EXPECT_THAT(calls(), ElementsAre("power RestartSystem []"));
}

TEST_F(FactorySettingsRestartTest, IsNotPutOffByASecondRequest)
{
    startInTestMode();

    station.sendCommand(0x06, 0x13, {0x01});
    timers.advance(milliseconds(900));
    station.sendCommand(0x06, 0x13, {0x01});
    timers.advance(milliseconds(100));
    EXPECT_THAT(calls(), ElementsAre("system_misc RestoreFactorySettings []", "file_manager ClearUserData []",
                                     "system_misc RestoreFactorySettings []", "file_manager ClearUserData []",
                                     "power RestartSystem []"));

    timers.advance(milliseconds(10'000));
    EXPECT_THAT(calls(), testing::SizeIs(5));
}

TEST_F(FactorySettingsRestartTest, ComesAgainAfterARequestThatFollowsIt)
{
    startInTestMode();
    station.sendCommand(0x06, 0x13, {0x01});
    timers.advance(milliseconds(1000));
    unit.calls().clear();

    station.sendCommand(0x06, 0x13, {0x01});
    timers.advance(milliseconds(1000));

    EXPECT_THAT(calls(), ElementsAre("system_misc RestoreFactorySettings []", "file_manager ClearUserData []",
                                     "power RestartSystem []"));
}

TEST_F(FactorySettingsRestartTest, DoesNotComeWithoutTheRightByte)
{
    startInTestMode();

    station.sendCommand(0x06, 0x13);
    station.sendCommand(0x06, 0x13, {0x00});
    station.sendCommand(0x06, 0x13, {0x02, 0x01});
    EXPECT_EQ(engine().IsNormalTimerActive(20), 0);
    timers.advance(milliseconds(10'000));

    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(FactorySettingsRestartTest, ComesAlsoWithoutASystemMiscProxyWhichIsLoggedAsError)
{
    unit.mergeState(kNoMisc);
    startInTestMode();

    station.sendCommand(0x06, 0x13, {0x01});
    timers.advance(milliseconds(1000));

    EXPECT_THAT(calls(), ElementsAre("file_manager ClearUserData []", "power RestartSystem []"));
    EXPECT_THAT(log.errors(),
                ElementsAre("ERROR HandleHardKeyAndDisplay, no system-misc proxy, settings not restored"));
}

TEST_F(FactorySettingsRestartTest, ComesAlsoWhenTestModeHasBeenSwitchedOff)
{
    startInTestMode();
    station.sendCommand(0x06, 0x13, {0x01});
    unit.calls().clear();

    station.sendCommand(0x0F, 0x00, {0x00});
    timers.advance(milliseconds(1000));

    EXPECT_THAT(calls(), ElementsAre("power RestartSystem []"));
}

TEST_F(FactorySettingsRestartTest, IsStillDueWhenNoProxyAtAllIsThere)
{
    startInTestMode();
    takeTheHeadUnitAway();

    station.sendCommand(0x06, 0x13, {0x01});

    EXPECT_THAT(log.errors(), ElementsAre("ERROR HandleHardKeyAndDisplay, no system-misc proxy, settings not restored",
                                          "ERROR HandleHardKeyAndDisplay, no file manager, user data not cleared"));
    EXPECT_EQ(engine().IsNormalTimerActive(20), 1);
}

TEST_F(FactorySettingsRestartTest, WithoutAPowerProxyIsLoggedAsError)
{
    unit.mergeState(kNoPower);
    startInTestMode();

    station.sendCommand(0x06, 0x13, {0x01});
    timers.advance(milliseconds(1000));

    EXPECT_THAT(log.errors(), ElementsAre("ERROR no power proxy, the unit does not restart"));
}

}  // namespace
