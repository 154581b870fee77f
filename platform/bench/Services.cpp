// The platform's getters, and the operations of KYRSource.

#include "platform/bench/Services.h"

namespace bench {
namespace {

/// @returns the fake; null if no head unit is installed.
template <class Fake>
Fake* installedService(Fake Services::*fake)
{
    Services* const services = installedServices();
    return services == nullptr ? nullptr : &(services->*fake);
}

/// @param available the row of the state that can take the service away
template <class Fake>
Fake* installedService(Fake Services::*fake, StateKey available)
{
    Services* const services = installedServices();
    return services != nullptr && services->context.state.flag(available) ? &(services->*fake) : nullptr;
}

}  // namespace
}  // namespace bench

using bench::Services;

KYRAndroidAuto* KYR_GetAAProxy()
{
    return bench::installedService(&Services::androidAuto);
}

KYRAppMgrService* KYR_GetAppMgrService()
{
    return bench::installedService(&Services::appManager);
}

KYRAudio* KYR_GetAudioService()
{
    return bench::installedService(&Services::audio, "/audio/available");
}

KYRCarPlay* KYR_GetCarPlayService()
{
    return bench::installedService(&Services::carPlay);
}

KYRDeviceApp* KYR_GetDeviceAppProxy()
{
    return bench::installedService(&Services::deviceApp);
}

KYRFileMgr* KYR_GetFileMgr()
{
    return bench::installedService(&Services::fileManager);
}

KYRLibConfigs* GetLibConfigs()
{
    return bench::installedService(&Services::config);
}

KYRLocation* KYR_GetLocationService()
{
    return bench::installedService(&Services::location);
}

KYRMediaPlayer* KYR_GetMediaPlayer()
{
    return bench::installedService(&Services::mediaPlayer);
}

KYRPower* KYR_GetSystemPowerProxy()
{
    return bench::installedService(&Services::power, "/power/available");
}

KYRSystemInfo* KYR_GetSystemInfoProxy()
{
    return bench::installedService(&Services::systemInfo);
}

KYRSystemMisc* KYR_GetSystemMiscProxy()
{
    return bench::installedService(&Services::systemMisc, "/system_misc/available");
}

KYRSystemUpdate* KYR_GetSystemUpdateProxy()
{
    return bench::installedService(&Services::systemUpdate);
}

KYRTuner* KYR_GetTunerService()
{
    return bench::installedService(&Services::tuner, "/tuner/available");
}

KYRU6Persist* KYR_GetU6PersistService()
{
    return bench::installedService(&Services::u6Persist);
}

KYRWifi* KYR_GetWifiService()
{
    return bench::installedService(&Services::wifi, "/wifi/available");
}

// The source manager runs in the process of the bench: there is no client to start.
void KYRSource::StartService() {}

int KYRSource::Request(int nSourceId, AudioGainType eGain)
{
    return bench::withServices([&](Services& services) { return services.sourceManager.request(nSourceId, eGain); });
}

KYRSource::SourceID KYRSource::GetCurrentSource(SourceType)
{
    return bench::withServices([](Services& services) { return services.sourceManager.current(); });
}

void KYRSource::AddListener(IKYRSourceListener* pListener)
{
    bench::withServices([&](Services& services) { services.sourceManager.AddListener(pListener); });
}

void KYRSource::RemoveListener(IKYRSourceListener* pListener)
{
    bench::withServices([&](Services& services) { services.sourceManager.RemoveListener(pListener); });
}
