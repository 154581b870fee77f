#include "platform/bench/FakeProxies.h"

#include <algorithm>

#include "platform/bench/Services.h"

namespace bench {

void FakeFileManager::ClearUserData()
{
    context_.calls.add("file_manager", "ClearUserData", {});
}

void FakeSystemUpdate::Request(int code)
{
    context_.calls.add("system_update", "Request", {code});
}

int FakeSystemInfo::GetVersionInfo(SystemInfo::VersionInfo& info)
{
    std::ranges::move(context_.state.texts("/system_info/versions"), info.strField.begin());
    return 1;
}

int FakeLocation::InitInstance()
{
    return 1;
}

}  // namespace bench

KYRFileMgr* KYR_GetFileMgr()
{
    bench::Services* const services = bench::installedServices();
    return services == nullptr ? nullptr : &services->fileManager;
}

KYRSystemUpdate* KYR_GetSystemUpdateProxy()
{
    bench::Services* const services = bench::installedServices();
    return services == nullptr ? nullptr : &services->systemUpdate;
}

KYRSystemInfo* KYR_GetSystemInfoProxy()
{
    bench::Services* const services = bench::installedServices();
    return services == nullptr ? nullptr : &services->systemInfo;
}

KYRLocation* KYR_GetLocationService()
{
    bench::Services* const services = bench::installedServices();
    return services == nullptr ? nullptr : &services->location;
}

KYRMediaPlayer* KYR_GetMediaPlayer()
{
    bench::Services* const services = bench::installedServices();
    return services == nullptr ? nullptr : &services->mediaPlayer;
}

KYRU6Persist* KYR_GetU6PersistService()
{
    bench::Services* const services = bench::installedServices();
    return services == nullptr ? nullptr : &services->u6Persist;
}
