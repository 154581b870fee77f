#include <algorithm>
#include <array>
#include <cstdio>

#include "engineering/Config.h"
#include "engineering/EngineeringSignals.h"
#include "engineering/Log.h"
#include "engineering/autotest/KYRAutoTest.h"
#include "protocol/CommandGroups.h"

using namespace protocol;

namespace {

constexpr unsigned char kReadyCommand = 0x01;

}  // namespace

std::span<const KYRAutoTest::Group> KYRAutoTest::Groups()
{
    static constexpr auto kGroups = std::to_array<Group>({
        {kSource, "source", &KYRAutoTest::HandleSourceCommands, SourceCommands},
        {kEq, "EQ and audio", &KYRAutoTest::HandleEQCommands, EQCommands},
        {kTuner, "tuner", &KYRAutoTest::HandleTunerCommands, TunerCommands},
        {kMedia, "media", &KYRAutoTest::HandleMediaCommands, MediaCommands},
        {kBluetooth, "Bluetooth", &KYRAutoTest::HandleBTCommands, BTCommands},
        {kGps, "GPS", &KYRAutoTest::HandleGPSCommands, GPSCommands},
        {kHardKeyAndDisplay, "hard keys and display", &KYRAutoTest::HandleHardKeyAndDisplay, HardKeyAndDisplayCommands},
        {kInfoAcquire, "information acquisition", &KYRAutoTest::HandleInfoAcquireCommands, InfoAcquireCommands},
        {kCarState, "car state", &KYRAutoTest::HandleCarState, CarStateCommands},
        {kHuInfoWrite, "head-unit information write", &KYRAutoTest::HandleHUInfoWrite, HUInfoWriteCommands},
        {kOther, "other", &KYRAutoTest::HandleOtherCommands, OtherCommands},
        {kTestMode, "test mode", &KYRAutoTest::HandleTestMode, TestModeCommands},
        {kWifiConnect, "Wi-Fi connection", &KYRAutoTest::HandleWifiConnectCommands, WifiConnectCommands},
        {kPhoneConnected, "phone connected", &KYRAutoTest::HandlePhoneConnected, PhoneConnectedCommands},
    });
    static_assert(std::ranges::adjacent_find(kGroups, std::ranges::greater_equal{}, &Group::code) == kGroups.end(),
                  "codes ascend, each once");
    return kGroups;
}

void KYRAutoTest::HandleAutoTestCommands(unsigned char cmd_one, unsigned char cmd_two, unsigned char* param,
                                         int param_len)
{
    KYR_LOG_DEBUG("HandleAutoTestCommands, cmd_one = 0x%x, cmd_two = 0x%x, param_len = %d", cmd_one, cmd_two,
                  param_len);
    if (cmd_one == kTestMode) {
        HandleTestMode(cmd_two, param, param_len);
        if (cmd_two == kReadyCommand)
            Reply(replyGroup(kTestMode), kReadyCommand, {static_cast<unsigned char>(m_bMediaModuleReady ? 1 : 0)});
    }
    if (ConfigFlag(kOpenDebugKey))
        std::printf("[auto test]KYRAutoTest::HandleAutoTestCommands, m_bIsAutoTestMode = %d\n",
                    m_bIsAutoTestMode ? 1 : 0);
    if (!m_bIsAutoTestMode)
        return;

    // WIRE: decided after the mode may have changed: the frame that switches it on is published, the one that
    //       switches it off is not.
    emit_uart_data_changed_signal(cmd_one, cmd_two, param, static_cast<unsigned int>(std::max(param_len, 0)));
    const auto group = std::ranges::lower_bound(Groups(), cmd_one, {}, &Group::code);
    if (group != Groups().end() && group->code == cmd_one && cmd_one != kTestMode)
        (this->*group->handler)(cmd_two, param, param_len);
}
