#include <algorithm>
#include <cstdio>

#include "engineering/autotest/KYRAutoTest.h"
#include "engineering/base/Config.h"
#include "engineering/base/Log.h"
#include "engineering/base/Outlets.h"

namespace {

constexpr unsigned char kReadyCommand = 0x01;

}  // namespace

void KYRAutoTest::HandleAutoTestCommands(unsigned char cmd_one, unsigned char cmd_two, unsigned char* param,
                                         int param_len)
{
    KYR_LOG_DEBUG("HandleAutoTestCommands, cmd_one = 0x%x, cmd_two = 0x%x, param_len = %d", cmd_one, cmd_two,
                  param_len);
    if (cmd_one == kTestMode) {
        HandleTestMode(cmd_two, param, param_len);
        if (cmd_two == kReadyCommand)
            Reply(kTestMode, kReadyCommand, {static_cast<unsigned char>(m_bMediaModuleReady ? 1 : 0)});
    }
    if (ConfigFlag(kOpenDebugKey))
        std::printf("[auto test]KYRAutoTest::HandleAutoTestCommands, m_bIsAutoTestMode = %d\n",
                    m_bIsAutoTestMode ? 1 : 0);
    if (!m_bIsAutoTestMode)
        return;

    // WIRE: the mode may have changed by now: the frame that switches it on is published, the one that switches it off
    //       is not.
    emit_uart_data_changed_signal(cmd_one, cmd_two, param, static_cast<unsigned int>(std::max(param_len, 0)));
    const auto group = std::ranges::lower_bound(Groups(), cmd_one, {}, &Group::code);
    if (group != Groups().end() && group->code == cmd_one && cmd_one != kTestMode)
        (this->*group->handler)(cmd_two, param, param_len);
}
