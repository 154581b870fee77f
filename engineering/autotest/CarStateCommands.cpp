#include <array>

#include "engineering/autotest/KYRAutoTest.h"
#include "engineering/base/Log.h"
#include "protocol/Frame.h"

#undef KYR_LOG_FUNCTION
#define KYR_LOG_FUNCTION "HandleCarState"

namespace {

constexpr int kReportedLightType = 1;

}  // namespace

// Switches only from the opposite status: a repeated request must not do harm.
void KYRAutoTest::SwitchPowerModeFrom(int nExpectedStatus, int nMode)
{
    if (m_PowerService == nullptr) {
        KYR_LOG_ERROR("HandleCarState, no power proxy, power mode not switched");
        return;
    }
    const int power_status = m_PowerService->GetPowerStatus();
    KYR_LOG_DEBUG("HandleCarState, power_status = %d", power_status);
    if (power_status == nExpectedStatus)
        m_PowerService->SwitchPowerMode(nMode);
}

std::span<const Command> KYRAutoTest::CarStateCommands()
{
    static constexpr auto kCommands = std::to_array<Command>({
        // cmd_two, least number of parameters, name, action
        {0x00, 0, "system-misc state",
         [](KYRAutoTest&, Params) {
             KYRSystemMisc* const misc = KYR_GetSystemMiscProxy();
             if (misc == nullptr)
                 KYR_LOG_ERROR("HandleCarState, no system-misc proxy, its state counts as 0");
             const bool active = misc != nullptr && misc->GetState() != 0;
             Reply(kCarState, 0x00, {static_cast<unsigned char>(active ? 1 : 0)});
         }},
        {0x06, 0, "screen light type",
         [](KYRAutoTest& engine, Params) {
             // WIRE: without a power proxy the reply has no parameter.
             if (engine.m_PowerService == nullptr) {
                 KYR_LOG_ERROR("HandleCarState, no power proxy, no screen light type");
                 Reply(kCarState, 0x06, {});
                 return;
             }
             const int type = engine.m_PowerService->GetCurScreenLightType();
             KYR_LOG_DEBUG("GetCurScreenLightType, type = %d", type);
             Reply(kCarState, 0x06, {static_cast<unsigned char>(type == kReportedLightType ? 1 : 0)});
         }},
        {0x0B, 0, "car speed",
         [](KYRAutoTest& engine, Params) {
             const unsigned int speed = engine.m_iCarSpeed;
             KYR_LOG_DEBUG("HandleCarState, m_iCarSpeed = %d", speed);
             std::vector<unsigned char> reply;
             protocol::appendBigEndian(reply, speed, 2);  // WIRE: higher bits are dropped
             Reply(kCarState, 0x0B, reply);
         }},
        {0x0C, 0, "shut down",
         [](KYRAutoTest& engine, Params) {
             if (engine.m_PowerService == nullptr) {
                 KYR_LOG_ERROR("HandleCarState, no power proxy, not shut down");
                 return;
             }
             engine.m_PowerService->SetPowerState(KYRPower::PS_SHUT_DOWN);
             KYR_LOG_DEBUG("HandleCarState, SetPowerState(KYRPower::PS_SHUT_DOWN)");
         }},
        {0x10, 1, "power mode",
         [](KYRAutoTest& engine, Params params) {
             if (params[0] == 1)
                 engine.SwitchPowerModeFrom(KYRPower::POWER_STATUS_OFF, 1);
             else if (params[0] == 0)
                 engine.SwitchPowerModeFrom(KYRPower::POWER_STATUS_ON, 0);
         }},
    });
    static_assert(CodesAscend(kCommands));
    return kCommands;
}

void KYRAutoTest::HandleCarState(unsigned char cmd_two, unsigned char* param, int param_len)
{
    Run(CarStateCommands(), cmd_two, param, param_len);
}
