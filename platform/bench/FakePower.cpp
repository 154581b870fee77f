#include "platform/bench/FakePower.h"

#include "platform/bench/Services.h"

namespace bench {
namespace {

constexpr const char* kPowerService = "power";

}  // namespace

void FakePower::SetPowerState(PowerState state)
{
    context_.calls.add(kPowerService, "SetPowerState", {int{state}});
    if (state == PS_SHUT_DOWN) {
        context_.state.set("/power/shut_down", true);
    }
}

int FakePower::GetPowerState()
{
    return context_.state.number("/power/state");
}

int FakePower::GetPowerStatus()
{
    return context_.state.number("/power/status");
}

void FakePower::SwitchPowerMode(int on)
{
    context_.calls.add(kPowerService, "SwitchPowerMode", {on});
    if (on == 0 || on == 1) {
        context_.state.set("/power/status", int{on == 1 ? POWER_STATUS_ON : POWER_STATUS_OFF});
    }
}

int FakePower::GetCurScreenLightType()
{
    return context_.state.number("/power/screen_light_type");
}

void FakePower::RestartSystem()
{
    context_.calls.add(kPowerService, "RestartSystem", {});
}

}  // namespace bench

KYRPower* KYR_GetSystemPowerProxy()
{
    return bench::installedService(&bench::Services::power, "/power/available");
}
