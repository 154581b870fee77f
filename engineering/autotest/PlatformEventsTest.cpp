#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>

#include "tests/support/EngineTest.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

/// What happened is stored with auto-test mode off, and told once it is on.
class PlatformEventsTest : public EngineTest
{
public:
    PlatformEventsTest()
    {
        start();
        forget();
    }

    void switchTestMode(bool on)
    {
        station.sendCommand(0x0F, 0x00, {static_cast<std::uint8_t>(on ? 1 : 0)});
        station.clear();
        hmi.clear();
    }

    /// @returns the reply to a command without parameters.
    std::vector<std::string> ask(std::uint8_t group, std::uint8_t command)
    {
        station.clear();
        station.sendCommand(group, command);
        return station.replies();
    }

    void expectThatNothingLeft()
    {
        EXPECT_THAT(station.sent(), IsEmpty());
        EXPECT_THAT(hmi.signals(), IsEmpty());
        EXPECT_THAT(calls(), IsEmpty());
    }
};

TEST_F(PlatformEventsTest, OnlyStoreInEitherMode)
{
    for (const bool on : {false, true}) {
        switchTestMode(on);

        raise("OnU6PersistDataChange", {{"module", 1}, {"value", 2}});
        raise("OnSourceStatusChanged", {{"source", 1}, {"status", 2}});
        raise("OnCarSpeedChange", {{"speed", 100}});
        raise("OnRadioAntStateChange", {{"state", 3}});
        raise("OnGpsAntStateChange", {{"state", 3}});
        raise("OnOpenBtStatusChanged", {{"status", 1}});
        raise("OnFrequencyChanged", {{"band", 1}, {"value", 0}, {"frequency", 9000}});
        raise("OnTAChanged", {{"freq", 9000}, {"active", 1}});
        raise("OnAudioMuteStateChanged", {{"state", 1}, {"channel", 6}});
        raise("OnModuleStatusChanged", {{"module", 9}});
        raise("OnModuleStatusChanged", {{"module", 17}});
        raise("OnStatusChange", {{"status", 1}});
        raise("OnConnectionStatusChanged", {{"status", 1}});

        expectThatNothingLeft();
    }
}

TEST_F(PlatformEventsTest, ChangesOfPersistedDataAndOfSourcesAreIgnored)
{
    switchTestMode(true);
    log.clear();

    raise("OnU6PersistDataChange", {{"module", 1}, {"value", 2}});
    raise("OnSourceStatusChanged", {{"source", 16}, {"status", 1}});

    expectThatNothingLeft();
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PlatformEventsTest, TheSpeedIsStoredWithTheModeOff)
{
    raise("OnCarSpeedChange", {{"speed", 0x1234}});

    switchTestMode(true);

    EXPECT_THAT(ask(0x09, 0x0B), ElementsAre("89 0B [12 34]"));
}

TEST_F(PlatformEventsTest, TheBluetoothPowerStatusIsStoredWithTheModeOff)
{
    raise("OnOpenBtStatusChanged", {{"status", 3}});

    switchTestMode(true);

    EXPECT_THAT(ask(0x04, 0x0C), ElementsAre("84 0C [03]"));
}

TEST_F(PlatformEventsTest, AFrequencyOfBandOneIsStoredWithTheModeOff)
{
    raise("OnFrequencyChanged", {{"band", 1}, {"value", 77}, {"frequency", 9000}});

    switchTestMode(true);

    EXPECT_THAT(ask(0x02, 0x18), ElementsAre("82 18 [00 00 23 28]"));
}

TEST_F(PlatformEventsTest, AFrequencyOfAnotherBandLeavesTheStoredOne)
{
    raise("OnFrequencyChanged", {{"band", 1}, {"value", 0}, {"frequency", 8750}});
    for (const int band : {0, 2, 3, 4, -1})
        raise("OnFrequencyChanged", {{"band", band}, {"value", 1}, {"frequency", 9000}});

    switchTestMode(true);

    EXPECT_THAT(ask(0x02, 0x18), ElementsAre("82 18 [00 00 22 2E]"));
}

TEST_F(PlatformEventsTest, TrafficAnnouncementsAreStoredWithTheModeOffAndLogged)
{
    raise("OnTAChanged", {{"freq", 9470}, {"active", 1}});

    switchTestMode(true);

    EXPECT_THAT(log.lines(), Contains("INFO OnTAChanged, freq = 9470 active = 1"));
    EXPECT_THAT(ask(0x02, 0x17), ElementsAre("82 17 [01]"));
}

TEST_F(PlatformEventsTest, AntennaStatesAreNotWhatTheStationIsTold)
{
    switchTestMode(true);

    raise("OnRadioAntStateChange", {{"state", 3}});
    raise("OnGpsAntStateChange", {{"state", 3}});

    EXPECT_THAT(ask(0x02, 0x12), ElementsAre("82 12 [01]"));  // the proxy's states are 4
    EXPECT_THAT(ask(0x02, 0x13), ElementsAre("82 13 [01]"));
}

TEST_F(PlatformEventsTest, MuteStatesAreLoggedForEveryChannel)
{
    raise("OnAudioMuteStateChanged", {{"state", 1}, {"channel", 5}});
    raise("OnAudioMuteStateChanged", {{"state", 0}, {"channel", 6}});

    EXPECT_THAT(log.lines(), ElementsAre("DEBUG OnAudioMuteStateChanged, MuteState = 1, channel = 5",
                                         "DEBUG OnAudioMuteStateChanged, MuteState = 0, channel = 6"));
}

TEST_F(PlatformEventsTest, ModuleNineIsReadyForGoodOnceItHasStarted)
{
    EXPECT_THAT(ask(0x0F, 0x01), ElementsAre("8F 01 [00]"));

    raise("OnModuleStatusChanged", {{"module", 9}});
    EXPECT_THAT(ask(0x0F, 0x01), ElementsAre("8F 01 [01]"));

    for (const int module : {9, 8, 17, 0, -1})
        raise("OnModuleStatusChanged", {{"module", module}});
    EXPECT_THAT(ask(0x0F, 0x01), ElementsAre("8F 01 [01]"));
}

TEST_F(PlatformEventsTest, Module17IsReadyForGoodOnceItHasStarted)
{
    switchTestMode(true);
    EXPECT_THAT(ask(0x10, 0x09), ElementsAre("90 09 [00]"));

    raise("OnModuleStatusChanged", {{"module", 17}});
    EXPECT_THAT(ask(0x10, 0x09), ElementsAre("90 09 [01]"));

    for (const int module : {17, 16, 9, 0, -1})
        raise("OnModuleStatusChanged", {{"module", module}});
    EXPECT_THAT(ask(0x10, 0x09), ElementsAre("90 09 [01]"));
}

TEST_F(PlatformEventsTest, OtherModulesSetNoFlag)
{
    for (const int module : {0, 1, 2, 3, 5, 7, 8, 10, 14, 15, 16, 18, 20, 255, 265, 273, -1})
        raise("OnModuleStatusChanged", {{"module", module}});
    switchTestMode(true);

    EXPECT_THAT(ask(0x0F, 0x01), ElementsAre("8F 01 [00]"));
    EXPECT_THAT(ask(0x10, 0x09), ElementsAre("90 09 [00]"));
}

TEST_F(PlatformEventsTest, EveryModuleIsLogged)
{
    raise("OnModuleStatusChanged", {{"module", 9}});
    raise("OnModuleStatusChanged", {{"module", 17}});
    raise("OnModuleStatusChanged", {{"module", 20}});

    EXPECT_THAT(log.lines(),
                ElementsAre("INFO OnModuleStatusChanged, module = 9", "INFO OnModuleStatusChanged, module = 17",
                            "INFO OnModuleStatusChanged, module = 20"));
}

TEST_F(PlatformEventsTest, CarPlayIsConnectedByOneAndNoLongerByTwoOrThree)
{
    switchTestMode(true);
    EXPECT_THAT(ask(0x11, 0x01), ElementsAre("91 01 [00]"));

    for (const int end : {2, 3}) {
        raise("OnStatusChange", {{"status", 1}});
        EXPECT_THAT(ask(0x11, 0x01), ElementsAre("91 01 [01]"));

        raise("OnStatusChange", {{"status", end}});
        EXPECT_THAT(ask(0x11, 0x01), ElementsAre("91 01 [00]"));
    }
}

TEST_F(PlatformEventsTest, AnyOtherCarPlayStatusLeavesTheFlag)
{
    const std::vector<int> others = {0, 4, 255, -1};

    for (const int status : others)
        raise("OnStatusChange", {{"status", status}});
    switchTestMode(true);
    EXPECT_THAT(ask(0x11, 0x01), ElementsAre("91 01 [00]"));

    raise("OnStatusChange", {{"status", 1}});
    for (const int status : others)
        raise("OnStatusChange", {{"status", status}});
    EXPECT_THAT(ask(0x11, 0x01), ElementsAre("91 01 [01]"));
}

TEST_F(PlatformEventsTest, EveryCarPlayStatusIsLoggedAndStoredWithTheModeOff)
{
    raise("OnStatusChange", {{"status", 4}});
    raise("OnStatusChange", {{"status", 1}});

    EXPECT_THAT(log.lines(), ElementsAre("DEBUG CarPlayConnectStatus, OnStatusChange status = 4",
                                         "DEBUG CarPlayConnectStatus, OnStatusChange status = 1"));
    switchTestMode(true);
    EXPECT_THAT(ask(0x11, 0x01), ElementsAre("91 01 [01]"));
}

TEST_F(PlatformEventsTest, APhonesChoiceOfConnectionsIsAnsweredInTestMode)
{
    switchTestMode(true);

    raise("OnConnectionStatusChanged", {{"status", 2}});

    EXPECT_THAT(calls(), ElementsAre("device_app SelectConnection [1,0]"));
    EXPECT_THAT(log.lines(), Contains("INFO OnConnectionStatusChanged, info.status = 2"));
    EXPECT_THAT(station.sent(), IsEmpty());
}

TEST_F(PlatformEventsTest, AnyOtherConnectionStatusIsLoggedOnly)
{
    switchTestMode(true);
    log.clear();

    for (const int status : {0, 1, 3, 258, -1})
        raise("OnConnectionStatusChanged", {{"status", status}});

    expectThatNothingLeft();
    EXPECT_THAT(log.lines(), ElementsAre("INFO OnConnectionStatusChanged, info.status = 0",
                                         "INFO OnConnectionStatusChanged, info.status = 1",
                                         "INFO OnConnectionStatusChanged, info.status = 3",
                                         "INFO OnConnectionStatusChanged, info.status = 258",
                                         "INFO OnConnectionStatusChanged, info.status = -1"));
}

TEST_F(PlatformEventsTest, APhonesChoiceOfConnectionsIsNotEvenLoggedWithTheModeOff)
{
    raise("OnConnectionStatusChanged", {{"status", 2}});

    expectThatNothingLeft();
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(PlatformEventsTest, APhonesChoiceOfConnectionsIsNoLongerAnsweredOnceTheModeIsOff)
{
    switchTestMode(true);
    switchTestMode(false);

    raise("OnConnectionStatusChanged", {{"status", 2}});

    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(PlatformEventsTest, WithoutADeviceAppProxyThePhonesChoiceIsLoggedAsError)
{
    switchTestMode(true);
    takeTheHeadUnitAway();

    KYRDeviceApp::_ConnectionInfo info{};
    info.status = 2;
    engine().OnConnectionStatusChanged(info);

    EXPECT_THAT(log.errors(), ElementsAre("ERROR OnConnectionStatusChanged, no device-app proxy"));
}

TEST_F(PlatformEventsTest, TheConnectionStatusIsTheSixthField)
{
    switchTestMode(true);
    KYRDeviceApp::_ConnectionInfo info{{2, 2, 2, 2, 2}, 1};

    engine().OnConnectionStatusChanged(info);

    EXPECT_THAT(calls(), IsEmpty());
    static_assert(offsetof(KYRDeviceApp::_ConnectionInfo, status) == 20);
}

}  // namespace
