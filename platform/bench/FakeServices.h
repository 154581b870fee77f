#pragma once

#include <IKYRListener.h>
#include <KYRAndroidAuto.h>
#include <KYRAudio.h>
#include <KYRCarPlay.h>
#include <KYRConfig.h>
#include <KYRDeviceApp.h>
#include <KYRFileMgr.h>
#include <KYRLocation.h>
#include <KYRMediaPlayer.h>
#include <KYRPower.h>
#include <KYRSource.h>
#include <KYRSystemInfo.h>
#include <KYRSystemMisc.h>
#include <KYRSystemUpdate.h>
#include <KYRU6Persist.h>
#include <KYRWifi.h>

#include <algorithm>

#include "platform/bench/FakeContext.h"

// The small services. Queries read the state; actions are recorded and change the state.

namespace bench {

class FakeAndroidAuto : public Fake<KYRAndroidAuto>
{
public:
    using Fake::Fake;

    int GetState() override { return state().number("/android_auto/state"); }
};

class FakeAudio : public Fake<KYRAudio>
{
public:
    using Fake::Fake;

    int InitInstance() override { return state().flag("/audio/available") ? 1 : 0; }
    void GetVolume(unsigned char& limit, unsigned char& volume) override
    {
        limit = static_cast<unsigned char>(state().number("/audio/volume_limit"));
        volume = static_cast<unsigned char>(state().number("/audio/volume"));
    }
    MuteState GetMuteState(AudioChannel channel) override
    {
        return static_cast<MuteState>(state().numberAt("/audio/mute", channel).value_or(0));
    }
};

/// The configuration of the head unit. The service looks up keys for every frame, so a look-up copies only its result.
class FakeConfig : public Fake<KYRLibConfigs>
{
public:
    using Fake::Fake;

    int GetBool(const char* key) override { return state().configFlag(key).value_or(false) ? 1 : 0; }
    int GetText(const char* key, std::string& value) override
    {
        auto text = state().configText(key);
        if (text) {
            value = std::move(*text);
        }
        return text ? 1 : 0;
    }
};

class FakeDeviceApp : public Fake<KYRDeviceApp>
{
public:
    using Fake::Fake;

    int InitInstance() override { return 1; }
    void SelectConnection(int connection, int option) override
    {
        record("device_app", "SelectConnection", {connection, option});
    }
};

class FakeFileManager : public Fake<KYRFileMgr>
{
public:
    using Fake::Fake;

    void ClearUserData() override { record("file_manager", "ClearUserData"); }
};

/// Raises events only.
class FakeLocation : public KYRLocation
{
public:
    int InitInstance() override { return 1; }
};

/// The system power proxy. Shuts down only in the state, and never ends the process.
class FakePower : public Fake<KYRPower>
{
public:
    using Fake::Fake;

    void SetPowerState(PowerState power) override
    {
        record("power", "SetPowerState", {int{power}});
        if (power == PS_SHUT_DOWN) {
            state().set("/power/shut_down", true);
        }
    }
    int GetPowerState() override { return state().number("/power/state"); }
    int GetPowerStatus() override { return state().number("/power/status"); }
    void SwitchPowerMode(int on) override
    {
        record("power", "SwitchPowerMode", {on});
        if (on == 0 || on == 1) {
            state().set("/power/status", int{on == 1 ? POWER_STATUS_ON : POWER_STATUS_OFF});
        }
    }
    int GetCurScreenLightType() override { return state().number("/power/screen_light_type"); }
    void RestartSystem() override { record("power", "RestartSystem"); }
};

/// The audio source manager behind KYRSource.
class FakeSourceManager : public Fake<IKYRListener<IKYRSourceListener>>
{
public:
    using Fake::Fake;

    /// @returns 1 for a source that is available, else 0.
    int request(int source, KYRSource::AudioGainType gain)
    {
        record("source", "Request", {source, int{gain}});
        const auto available = state().numbers("/source/available");
        if (std::ranges::find(available, source) == available.end()) {
            return 0;
        }
        state().set("/source/current", source);
        return 1;
    }
    KYRSource::SourceID current() const { return static_cast<KYRSource::SourceID>(state().number("/source/current")); }
};

class FakeSystemInfo : public Fake<KYRSystemInfo>
{
public:
    using Fake::Fake;

    int GetVersionInfo(SystemInfo::VersionInfo& info) override
    {
        std::ranges::move(state().texts("/system_info/versions"), info.strField.begin());
        return 1;
    }
};

class FakeSystemMisc : public Fake<KYRSystemMisc>
{
public:
    using Fake::Fake;

    SystemMisc::AntState GetRadioAntState() override { return antenna("/system_misc/radio_antenna"); }
    SystemMisc::AntState GetDabAntState() override { return antenna("/system_misc/dab_antenna"); }
    SystemMisc::AntState GetGpsAntState() override { return antenna("/system_misc/gps_antenna"); }
    int GetState() override { return state().number("/system_misc/state"); }
    void RestoreFactorySettings() override { record("system_misc", "RestoreFactorySettings"); }

private:
    SystemMisc::AntState antenna(StateKey key) const { return static_cast<SystemMisc::AntState>(state().number(key)); }
};

class FakeSystemUpdate : public Fake<KYRSystemUpdate>
{
public:
    using Fake::Fake;

    void Request(int code) override { record("system_update", "Request", {code}); }
};

class FakeWifi : public Fake<KYRWifi>
{
public:
    using Fake::Fake;

    int InitInstance() override { return state().flag("/wifi/available") ? 1 : 0; }
    std::string GetText() override { return state().text("/wifi/text"); }
};

}  // namespace bench
