#include "platform/bench/FakeSystemMisc.h"

#include "platform/bench/Services.h"

namespace bench {

SystemMisc::AntState FakeSystemMisc::GetRadioAntState()
{
    return static_cast<SystemMisc::AntState>(context_.state.number("/system_misc/radio_antenna"));
}

SystemMisc::AntState FakeSystemMisc::GetDabAntState()
{
    return static_cast<SystemMisc::AntState>(context_.state.number("/system_misc/dab_antenna"));
}

SystemMisc::AntState FakeSystemMisc::GetGpsAntState()
{
    return static_cast<SystemMisc::AntState>(context_.state.number("/system_misc/gps_antenna"));
}

int FakeSystemMisc::GetState()
{
    return context_.state.number("/system_misc/state");
}

void FakeSystemMisc::RestoreFactorySettings()
{
    context_.calls.add("system_misc", "RestoreFactorySettings", {});
}

}  // namespace bench

KYRSystemMisc* KYR_GetSystemMiscProxy()
{
    return bench::installedService(&bench::Services::systemMisc, "/system_misc/available");
}
