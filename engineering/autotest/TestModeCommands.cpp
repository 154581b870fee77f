#include <array>
#include <cstdio>

#include "engineering/autotest/KYRAutoTest.h"
#include "engineering/base/Outlets.h"

namespace {

}  // namespace

// The dispatcher answers 0x01.
std::span<const Command> KYRAutoTest::TestModeCommands()
{
    static constexpr auto kCommands = std::to_array<Command>({
        // cmd_two, least number of parameters, name, action
        {0x00, 0, "set test mode",
         [](KYRAutoTest& engine, Params params) {
             if (!params.empty()) {
                 engine.m_bIsAutoTestMode = params[0] == 1;
                 emit_on_auto_test_mode_changed_signal(engine.m_bIsAutoTestMode ? 1 : 0);
             }
             std::printf("[auto test]HandleTestMode, m_bIsAutoTestMode = %d", engine.m_bIsAutoTestMode ? 1 : 0);
             // WIRE: the byte comes back unchanged, even if it switched the mode off. Without a byte the reply is
             // empty.
             Reply(kTestMode, 0x00, {params.begin(), params.begin() + (params.empty() ? 0 : 1)});
         }},
        {0xFF, 0, "get test mode",
         [](KYRAutoTest& engine, Params) {
             Reply(kTestMode, 0xFF, {static_cast<unsigned char>(engine.m_bIsAutoTestMode ? 1 : 0)});
         }},
    });
    static_assert(CodesAscend(kCommands));
    return kCommands;
}

void KYRAutoTest::HandleTestMode(unsigned char cmd_two, unsigned char* param, int param_len)
{
    Run(TestModeCommands(), cmd_two, param, param_len);
}
