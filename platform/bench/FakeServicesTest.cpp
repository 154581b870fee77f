// The fakes that have little to do: what each answers, records and changes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/bench/HeadUnit.h"
#include "platform/bench/Services.h"

namespace bench {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::IsEmpty;

class FakeServicesTest : public testing::Test
{
protected:
    FakeServicesTest() { unit_.install(); }

    HeadUnit unit_;
};

TEST_F(FakeServicesTest, AudioVolumeIsTheLowByteOfTheState)
{
    unit_.state().set("/audio/volume_limit", 0x0128);
    unit_.state().set("/audio/volume", 13);
    unsigned char limit = 0;
    unsigned char volume = 0;

    KYR_GetAudioService()->GetVolume(limit, volume);

    EXPECT_EQ(limit, 0x28);
    EXPECT_EQ(volume, 13);
}

TEST_F(FakeServicesTest, AudioMuteIsByChannelAndZeroForAnUnknownOne)
{
    unit_.state().set("/audio/mute/6", 2);

    EXPECT_EQ(KYR_GetAudioService()->GetMuteState(KYRAudio::CHANNEL_HARDWARE), 2);
    EXPECT_EQ(KYR_GetAudioService()->GetMuteState(static_cast<KYRAudio::AudioChannel>(5)), 0);
}

TEST_F(FakeServicesTest, PowerQueriesReadTheState)
{
    unit_.mergeState({{"power", {{"screen_light_type", 2}, {"status", 18}, {"state", 5}}}});

    EXPECT_EQ(KYR_GetSystemPowerProxy()->GetCurScreenLightType(), 2);
    EXPECT_EQ(KYR_GetSystemPowerProxy()->GetPowerStatus(), 18);
    EXPECT_EQ(KYR_GetSystemPowerProxy()->GetPowerState(), 5);
}

TEST_F(FakeServicesTest, PowerModeSwitchesTheStatus)
{
    KYR_GetSystemPowerProxy()->SwitchPowerMode(0);
    const int off = KYR_GetSystemPowerProxy()->GetPowerStatus();
    KYR_GetSystemPowerProxy()->SwitchPowerMode(1);
    const int on = KYR_GetSystemPowerProxy()->GetPowerStatus();

    EXPECT_EQ(off, 17);
    EXPECT_EQ(on, 16);
    EXPECT_THAT(unit_.calls().list(),
                ElementsAre(Call{"power", "SwitchPowerMode", {0}}, Call{"power", "SwitchPowerMode", {1}}));
}

TEST_F(FakeServicesTest, ShutDownShowsInTheStateAndAnotherPowerStateDoesNot)
{
    KYR_GetSystemPowerProxy()->SetPowerState(static_cast<KYRPower::PowerState>(1));
    const bool before = unit_.state().flag("/power/shut_down");
    KYR_GetSystemPowerProxy()->SetPowerState(KYRPower::PS_SHUT_DOWN);

    EXPECT_FALSE(before);
    EXPECT_TRUE(unit_.state().flag("/power/shut_down"));
    EXPECT_THAT(unit_.calls().list(),
                ElementsAre(Call{"power", "SetPowerState", {1}}, Call{"power", "SetPowerState", {3}}));
}

TEST_F(FakeServicesTest, RestartIsRecordedOnly)
{
    KYR_GetSystemPowerProxy()->RestartSystem();

    EXPECT_THAT(unit_.calls().list(), ElementsAre(Call{"power", "RestartSystem", json::array()}));
}

TEST_F(FakeServicesTest, AntennasAndVehicleStateAreThoseOfTheState)
{
    unit_.mergeState({{"system_misc", {{"radio_antenna", 1}, {"dab_antenna", 2}, {"gps_antenna", 3}, {"state", 7}}}});

    EXPECT_EQ(KYR_GetSystemMiscProxy()->GetRadioAntState(), 1);
    EXPECT_EQ(KYR_GetSystemMiscProxy()->GetDabAntState(), 2);
    EXPECT_EQ(KYR_GetSystemMiscProxy()->GetGpsAntState(), 3);
    EXPECT_EQ(KYR_GetSystemMiscProxy()->GetState(), 7);
}

TEST_F(FakeServicesTest, ActionsOfTheProxiesAreRecorded)
{
    KYR_GetSystemMiscProxy()->RestoreFactorySettings();
    KYR_GetFileMgr()->ClearUserData();
    KYR_GetSystemUpdateProxy()->Request(13);
    KYR_GetDeviceAppProxy()->SelectConnection(1, 0);

    EXPECT_THAT(unit_.calls().list(),
                ElementsAre(Call{"system_misc", "RestoreFactorySettings", json::array()},
                            Call{"file_manager", "ClearUserData", json::array()},
                            Call{"system_update", "Request", {13}}, Call{"device_app", "SelectConnection", {1, 0}}));
}

TEST_F(FakeServicesTest, SourceThatCanBeHadBecomesTheCurrentOne)
{
    EXPECT_EQ(KYRSource::Request(16, KYRSource::AUDIO_GAIN_DEFAULT), 1);

    EXPECT_EQ(KYRSource::GetCurrentSource(KYRSource::SOURCE_TYPE_MAIN), KYRSource::SOURCE_USB_MEDIA);
    EXPECT_EQ(unit_.state().get("/source/current"), 16);
    EXPECT_THAT(unit_.calls().list(), ElementsAre(Call{"source", "Request", {16, 0}}));
}

TEST_F(FakeServicesTest, SourceThatCannotBeHadChangesNothing)
{
    EXPECT_EQ(KYRSource::Request(2, static_cast<KYRSource::AudioGainType>(3)), 0);

    EXPECT_EQ(KYRSource::GetCurrentSource(KYRSource::SOURCE_TYPE_MAIN), 1);
    EXPECT_THAT(unit_.calls().list(), ElementsAre(Call{"source", "Request", {2, 3}}));
}

TEST_F(FakeServicesTest, VersionsAreThoseOfTheState)
{
    unit_.state().set("/system_info/versions/9", "2.0");
    SystemInfo::VersionInfo info;

    EXPECT_EQ(KYR_GetSystemInfoProxy()->GetVersionInfo(info), 1);

    EXPECT_THAT(info.strField, ElementsAre("field0", "field1", "field2", "field3", "field4", "field5", "field6",
                                           "field7", "field8", "2.0", "field10"));
}

TEST_F(FakeServicesTest, WifiTextAndAndroidAutoStateAreThoseOfTheState)
{
    unit_.state().set("/android_auto/state", -1);

    EXPECT_EQ(KYR_GetWifiService()->GetText(), "HeadUnit-WLAN");
    EXPECT_EQ(KYR_GetAAProxy()->GetState(), -1);
}

TEST_F(FakeServicesTest, ConfigurationShowsAChangeAtTheNextLookUp)
{
    KYRLibConfigs* const config = GetLibConfigs();
    const int before = config->GetBool("/engineering/open_debug");

    unit_.state().set("/config/~1engineering~1open_debug", true);

    EXPECT_EQ(before, 0);
    EXPECT_EQ(config->GetBool("/engineering/open_debug"), 1);
}

TEST_F(FakeServicesTest, ConfigurationGivesTextsAndLeavesTheTextAloneWithoutOne)
{
    std::string name;
    std::string other = "before";

    EXPECT_EQ(GetLibConfigs()->GetText("/project/project_name", name), 1);
    EXPECT_EQ(GetLibConfigs()->GetText("/engineering/open_debug", other), 0);
    EXPECT_EQ(GetLibConfigs()->GetText("/none", other), 0);

    EXPECT_EQ(name, "bench");
    EXPECT_EQ(other, "before");
    EXPECT_EQ(GetLibConfigs()->GetBool("/none"), 0);
    EXPECT_EQ(GetLibConfigs()->GetBool("/project/project_name"), 0);
}

TEST_F(FakeServicesTest, EveryServiceStarts)
{
    EXPECT_EQ(KYR_GetAudioService()->InitInstance(), 1);
    EXPECT_EQ(KYR_GetLocationService()->InitInstance(), 1);
    EXPECT_EQ(KYR_GetWifiService()->InitInstance(), 1);
    EXPECT_EQ(KYR_GetDeviceAppProxy()->InitInstance(), 1);
    EXPECT_EQ(KYR_GetMediaPlayer()->InitInstance(), 1);
    KYRSource::StartService();
    KYR_CreateBlueTooth();

    EXPECT_THAT(unit_.calls().list(), IsEmpty());
}

/// A service that the state can take away.
struct AvailableCase {
    const char* name;
    const char* path;
    bool (*isThere)();
};

class AvailableTest : public FakeServicesTest, public testing::WithParamInterface<AvailableCase>
{
};

TEST_P(AvailableTest, GetterReturnsNullWhileItIsUnavailable)
{
    const bool before = GetParam().isThere();
    unit_.state().set(GetParam().path, false);
    const bool meanwhile = GetParam().isThere();
    unit_.state().set(GetParam().path, true);

    EXPECT_TRUE(before);
    EXPECT_FALSE(meanwhile);
    EXPECT_TRUE(GetParam().isThere());
}

INSTANTIATE_TEST_SUITE_P(
    FakeServices, AvailableTest,
    testing::Values(AvailableCase{"Audio", "/audio/available", [] { return KYR_GetAudioService() != nullptr; }},
                    AvailableCase{"Tuner", "/tuner/available", [] { return KYR_GetTunerService() != nullptr; }},
                    AvailableCase{"SystemMisc", "/system_misc/available",
                                  [] { return KYR_GetSystemMiscProxy() != nullptr; }},
                    AvailableCase{"Power", "/power/available", [] { return KYR_GetSystemPowerProxy() != nullptr; }},
                    AvailableCase{"Wifi", "/wifi/available", [] { return KYR_GetWifiService() != nullptr; }}),
    [](const auto& each) { return each.param.name; });

TEST_F(FakeServicesTest, UnavailableServiceDoesNotStartForItsHolders)
{
    KYRAudio* const audio = KYR_GetAudioService();
    KYRWifi* const wifi = KYR_GetWifiService();

    unit_.mergeState({{"audio", {{"available", false}}}, {"wifi", {{"available", false}}}});

    EXPECT_EQ(audio->InitInstance(), 0);
    EXPECT_EQ(wifi->InitInstance(), 0);
}

}  // namespace
}  // namespace bench
