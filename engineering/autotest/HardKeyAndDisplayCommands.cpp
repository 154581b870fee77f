#include <array>

#include "KYRFileMgr.h"
#include "engineering/autotest/KYRAutoTest.h"
#include "engineering/base/Log.h"

#undef KYR_LOG_FUNCTION
#define KYR_LOG_FUNCTION "HandleHardKeyAndDisplay"

namespace {

/// The parameters of an echo command's answer: the first parameter byte, or nothing.
std::vector<unsigned char> FirstOrNone(Params params)
{
    return {params.begin(), params.begin() + (params.empty() ? 0 : 1)};
}

void LogFirst(Params params)
{
    if (!params.empty())
        KYR_LOG_DEBUG("HandleHardKeyAndDisplay, param[0] = %d", params[0]);
}

}  // namespace

std::span<const Command> KYRAutoTest::HardKeyAndDisplayCommands()
{
    static constexpr auto kCommands = std::to_array<Command>({
        // cmd_two, least number of parameters, name, action
        {0x0A, 0, "echo",
         [](KYRAutoTest&, Params params) {
             LogFirst(params);
             Reply(kHardKeyAndDisplay, 0x0A, FirstOrNone(params));
         }},
        {0x0B, 0, "set key feedback",
         [](KYRAutoTest& engine, Params params) {
             if (!params.empty())
                 engine.m_ucKeyFeedback = params[0];
             Reply(kHardKeyAndDisplay, 0x0B, FirstOrNone(params));
         }},
        {0x10, 0, "get key feedback",
         [](KYRAutoTest& engine, Params) { Reply(kHardKeyAndDisplay, 0x10, {engine.m_ucKeyFeedback}); }},
        {0x12, 0, "echo",
         [](KYRAutoTest&, Params params) {
             LogFirst(params);
             Reply(kHardKeyAndDisplay, 0x12, FirstOrNone(params));
         }},
        {0x13, 1, "factory settings",
         [](KYRAutoTest& engine, Params params) {
             if (params[0] != 1)
                 return;
             if (KYRSystemMisc* const misc = KYR_GetSystemMiscProxy())
                 misc->RestoreFactorySettings();
             else
                 KYR_LOG_ERROR("HandleHardKeyAndDisplay, no system-misc proxy, settings not restored");
             if (KYRFileMgr* const files = KYR_GetFileMgr())
                 files->ClearUserData();
             else
                 KYR_LOG_ERROR("HandleHardKeyAndDisplay, no file manager, user data not cleared");
             // A second request does not delay a pending restart.
             if (engine.IsNormalTimerActive(kRestartTimer) == 0)
                 engine.StartNormalTimer(kRestartTimer, kRestartDelay, TIMER_TENTHS_OF_SECOND, LOOP_ONCE);
         }},
        {0x14, 0, "get power state",
         [](KYRAutoTest&, Params) {
             KYRPower* const power = KYR_GetSystemPowerProxy();
             if (power == nullptr) {
                 KYR_LOG_ERROR("HandleHardKeyAndDisplay, no power proxy, no power state");
                 return;
             }
             Reply(kHardKeyAndDisplay, 0x14, {static_cast<unsigned char>(power->GetPowerState())});
         }},
    });
    static_assert(CodesAscend(kCommands));
    return kCommands;
}

void KYRAutoTest::HandleHardKeyAndDisplay(unsigned char cmd_two, unsigned char* param, int param_len)
{
    KYR_LOG_DEBUG("HandleHardKeyAndDisplay, cmd = %d, param_len = %d", cmd_two, param_len);
    Run(HardKeyAndDisplayCommands(), cmd_two, param, param_len);
}
