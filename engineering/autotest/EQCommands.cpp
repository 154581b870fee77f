#include <array>

#include "engineering/autotest/KYRAutoTest.h"
#include "engineering/base/Log.h"
#include "engineering/base/Outlets.h"

#undef KYR_LOG_FUNCTION
#define KYR_LOG_FUNCTION "HandleEQCommands"

// Commands that set something go to the HMI, which applies them as for its user. Commands that read ask the audio
// service.

namespace {

}  // namespace

std::span<const Command> KYRAutoTest::EQCommands()
{
    static constexpr auto kCommands = std::to_array<Command>({
        // cmd_two, least number of parameters, name, action
        {0x00, 1, "set volume", [](KYRAutoTest&, Params params) { emit_on_auto_test_volume_change_signal(params[0]); }},
        {0x01, 0, "get volume",
         [](KYRAutoTest& engine, Params) {
             if (engine.m_AudioService == nullptr) {
                 KYR_LOG_ERROR("HandleEQCommands, no audio service, no volume");
                 return;
             }
             unsigned char limit = 0;
             unsigned char volume = 0;
             engine.m_AudioService->GetVolume(limit, volume);
             Reply(kEq, 0x01, {volume});
         }},
        {0x0D, 2, "set fader, balance",
         [](KYRAutoTest&, Params params) {
             KYR_LOG_ERROR("HandleEQCommands, fader_value = %d, balance_value = %d", params[0], params[1]);
             emit_on_auto_test_set_fader_balance_signal(params[0], params[1]);
         }},
        {0x13, 0, "get hardware mute",
         [](KYRAutoTest& engine, Params) {
             if (engine.m_AudioService == nullptr) {
                 KYR_LOG_ERROR("HandleEQCommands, no audio service, no mute state");
                 return;
             }
             // WIRE: the service's answer, not the state that OnAudioMuteStateChanged() reported last.
             const int mute_state = engine.m_AudioService->GetMuteState(KYRAudio::CHANNEL_HARDWARE);
             KYR_LOG_DEBUG("HandleEQCommands, hardware_mute_state = %d", mute_state);
             Reply(kEq, 0x13, {static_cast<unsigned char>(mute_state)});
         }},
        {0x17, 0, "set EQ switch",
         [](KYRAutoTest& engine, Params params) {
             // WIRE: without a parameter the switch goes off.
             engine.m_nEqSwitch = params.empty() ? 0 : params[0];
             KYR_LOG_DEBUG("HandleEQCommands, set EQ switch on = %d", engine.m_nEqSwitch);
             emit_on_auto_test_set_eq_switch_signal(engine.m_nEqSwitch);
         }},
        {0x18, 0, "check EQ switch",
         [](KYRAutoTest& engine, Params) {
             // WIRE: the value that 0x17 stored, even if the HMI did not apply it; 1 before the first.
             KYR_LOG_DEBUG("HandleEQCommands, check EQ switch on = %d", engine.m_nEqSwitch);
             Reply(kEq, 0x18, {static_cast<unsigned char>(engine.m_nEqSwitch)});
         }},
    });
    static_assert(CodesAscend(kCommands));
    return kCommands;
}

void KYRAutoTest::HandleEQCommands(unsigned char cmd_two, unsigned char* param, int param_len)
{
    Run(EQCommands(), cmd_two, param, param_len);
}
