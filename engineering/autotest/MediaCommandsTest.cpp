#include "tests/support/EngineTest.h"

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// The play action is followed by media type and action, the track by media type and index.
const std::vector<CommandCase> kCases = {
    {"PlayAction0", {0x03, 0x00, 0}, {}, {"OnAutoTestMediaPlayActionSignal(1, 1)"}, {}},
    {"PlayAction1", {0x03, 0x00, 1}, {}, {"OnAutoTestMediaPlayActionSignal(1, 2)"}, {}},
    {"PlayAction2IsNone", {0x03, 0x00, 2}, {}, {}, {}},
    {"PlayAction255IsNone", {0x03, 0x00, 255}, {}, {}, {}},
    {"PlayActionIgnoresFurtherBytes", {0x03, 0x00, 1, 0, 0}, {}, {"OnAutoTestMediaPlayActionSignal(1, 2)"}, {}},

    // 0x01 counts from 1 on the wire and from 0 at the HMI
    {"SelectTrack0IsNone", {0x03, 0x01, 9, 0}, {}, {}, {}},
    {"SelectTrack1", {0x03, 0x01, 9, 1}, {}, {"OnAutoTestMediaSelectTrackSignal(1, 0)"}, {}},
    {"SelectTrack2", {0x03, 0x01, 9, 2}, {}, {"OnAutoTestMediaSelectTrackSignal(1, 1)"}, {}},
    {"SelectTrack255", {0x03, 0x01, 9, 255}, {}, {"OnAutoTestMediaSelectTrackSignal(1, 254)"}, {}},
    {"SelectTrackIgnoresFurtherBytes", {0x03, 0x01, 0, 3, 7}, {}, {"OnAutoTestMediaSelectTrackSignal(1, 2)"}, {}},

    // 0x02 the other way round than 0x00
    {"SkipAction0", {0x03, 0x02, 0}, {}, {"OnAutoTestMediaPlayActionSignal(1, 4)"}, {}},
    {"SkipAction1", {0x03, 0x02, 1}, {}, {"OnAutoTestMediaPlayActionSignal(1, 3)"}, {}},
    {"SkipAction2IsNone", {0x03, 0x02, 2}, {}, {}, {}},
    {"SkipAction255IsNone", {0x03, 0x02, 255}, {}, {}, {}},
    {"SkipActionIgnoresFurtherBytes", {0x03, 0x02, 0, 1}, {}, {"OnAutoTestMediaPlayActionSignal(1, 4)"}, {}},

    {"GetTrackType1", {0x03, 0x05}, {}, {"OnAutoTestGetMediaTrackIndexSignal(1)"}, {}},
    {"GetTrackType1IgnoresParameters", {0x03, 0x05, 3}, {}, {"OnAutoTestGetMediaTrackIndexSignal(1)"}, {}},

    // 0x0A as it comes
    {"SelectTrackType3Of0IsNone", {0x03, 0x0A, 9, 0}, {}, {}, {}},
    {"SelectTrackType3Of1", {0x03, 0x0A, 9, 1}, {}, {"OnAutoTestMediaSelectTrackSignal(3, 1)"}, {}},
    {"SelectTrackType3Of5", {0x03, 0x0A, 9, 5}, {}, {"OnAutoTestMediaSelectTrackSignal(3, 5)"}, {}},
    {"SelectTrackType3Of255", {0x03, 0x0A, 9, 255}, {}, {"OnAutoTestMediaSelectTrackSignal(3, 255)"}, {}},
    {"SelectTrackType3IgnoresFurtherBytes", {0x03, 0x0A, 0, 3, 7}, {}, {"OnAutoTestMediaSelectTrackSignal(3, 3)"}, {}},

    {"GetTrackType3", {0x03, 0x0B}, {}, {"OnAutoTestGetMediaTrackIndexSignal(3)"}, {}},
    {"GetTrackType3IgnoresParameters", {0x03, 0x0B, 1}, {}, {"OnAutoTestGetMediaTrackIndexSignal(3)"}, {}},
    {"GetTrackType2", {0x03, 0x0D}, {}, {"OnAutoTestGetMediaTrackIndexSignal(2)"}, {}},
    {"GetTrackType2IgnoresParameters", {0x03, 0x0D, 1}, {}, {"OnAutoTestGetMediaTrackIndexSignal(2)"}, {}},
};

class MediaCommandTest : public CommandTest
{
};

TEST_P(MediaCommandTest, DoesWhatItsRowSays)
{
    sendAndCompare();
}

INSTANTIATE_TEST_SUITE_P(Rows, MediaCommandTest, testing::ValuesIn(kCases), caseName);

class MediaCommandsTest : public EngineTest
{
public:
    std::string traceOf(std::uint8_t command, const std::vector<std::uint8_t>& params = {})
    {
        return printedBy([&] { station.sendCommand(0x03, command, params); });
    }
};

// WIRE: the same bytes select the actions in reversed order.
TEST_F(MediaCommandsTest, TheActionPairsOfTheTwoCommandsRunInOppositeOrder)
{
    startInTestMode();

    for (const std::uint8_t command : {0x00, 0x02})
        for (const std::uint8_t action : {0x00, 0x01})
            station.sendCommand(0x03, command, {action});

    EXPECT_THAT(hmi.requests(), testing::ElementsAre("OnAutoTestMediaPlayActionSignal(1, 1)",    // 00 [00]
                                                     "OnAutoTestMediaPlayActionSignal(1, 2)",    // 00 [01]
                                                     "OnAutoTestMediaPlayActionSignal(1, 4)",    // 02 [00]
                                                     "OnAutoTestMediaPlayActionSignal(1, 3)"));  // 02 [01]
}

// WIRE: counted from 1 in 0x01, unchanged in 0x0A.
TEST_F(MediaCommandsTest, TheSameTrackBytesAreOneLessForType1AndUnchangedForType3)
{
    startInTestMode();

    station.sendCommand(0x03, 0x01, {0x00, 0x05});
    station.sendCommand(0x03, 0x0A, {0x00, 0x05});

    EXPECT_THAT(hmi.requests(), testing::ElementsAre("OnAutoTestMediaSelectTrackSignal(1, 4)",
                                                     "OnAutoTestMediaSelectTrackSignal(3, 5)"));
}

TEST_F(MediaCommandsTest, ATrackOfType1IsTracedAsTheHmiCountsIt)
{
    startInTestMode();

    EXPECT_EQ(traceOf(0x01, {0x00, 0xFF}),
              "[auto test]HandleMediaCommands, emit_on_auto_test_media_select_track_signal,track: 254\n");
}

TEST_F(MediaCommandsTest, NothingElseIsTraced)
{
    startInTestMode();

    EXPECT_EQ(traceOf(0x01, {0x00, 0x00}), "");
    EXPECT_EQ(traceOf(0x01, {0x01}), "");
    EXPECT_EQ(traceOf(0x0A, {0x00, 0x05}), "");
    EXPECT_EQ(traceOf(0x00, {0x00}), "");
    EXPECT_EQ(traceOf(0x05), "");
}

TEST_F(MediaCommandsTest, TheSecondByteOfATrackSelectionIsLoggedAlsoWhenItSelectsNothing)
{
    for (const std::uint8_t command : {0x01, 0x0A}) {
        startInTestMode();

        station.sendCommand(0x03, command, {0x07, 0x09});
        station.sendCommand(0x03, command, {0x07, 0x00});

        EXPECT_THAT(log.lines(), Contains("DEBUG HandleMediaCommands, param[1] = 9"));
        EXPECT_THAT(log.lines(), Contains("DEBUG HandleMediaCommands, param[1] = 0"));
    }
}

TEST_F(MediaCommandsTest, ATrackSelectionThatIsTooShortIsNotLogged)
{
    startInTestMode();

    station.sendCommand(0x03, 0x01, {0x07});
    station.sendCommand(0x03, 0x0A, {0x07});

    EXPECT_THAT(log.lines(), Not(Contains(HasSubstr("HandleMediaCommands"))));
    EXPECT_THAT(log.errors(), IsEmpty());
}

}  // namespace
