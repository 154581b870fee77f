#include <array>

#include "KYRSystemInfo.h"
#include "engineering/autotest/KYRAutoTest.h"
#include "engineering/base/Config.h"
#include "engineering/base/Log.h"

#undef KYR_LOG_FUNCTION
#define KYR_LOG_FUNCTION "HandleInfoAcquireCommands"

namespace {

/// @returns a version by its position in the platform's record; empty without the proxy.
std::string Version(std::size_t nField)
{
    SystemInfo::VersionInfo info;
    if (KYRSystemInfo* const systemInfo = KYR_GetSystemInfoProxy())
        systemInfo->GetVersionInfo(info);
    else
        KYR_LOG_ERROR("HandleInfoAcquireCommands, no system-information proxy, no version");
    return info.strField[nField];
}

}  // namespace

std::span<const Command> KYRAutoTest::InfoAcquireCommands()
{
    static constexpr auto kCommands = std::to_array<Command>({
        // cmd_two, least number of parameters, name, action
        {0x00, 0, "version, field 9", [](KYRAutoTest&, Params) { ReplyText(kInfoAcquire, 0x00, Version(9)); }},
        {0x01, 0, "version, field 0", [](KYRAutoTest&, Params) { ReplyText(kInfoAcquire, 0x01, Version(0)); }},
        {0x04, 0, "BT version",
         [](KYRAutoTest& engine, Params) {
             const std::string version = engine.BtAttribute(KYRBtType::ATTRIBUTE_VERSION);
             KYR_LOG_DEBUG("BT version: %s", version.c_str());
             ReplyText(kInfoAcquire, 0x04, version);
         }},
        {0x06, 0, "project name",
         [](KYRAutoTest&, Params) { ReplyText(kInfoAcquire, 0x06, ConfigText(kProjectNameKey)); }},
        {0x1E, 0, "version, field 2", [](KYRAutoTest&, Params) { ReplyText(kInfoAcquire, 0x1E, Version(2)); }},
    });
    static_assert(CodesAscend(kCommands));
    return kCommands;
}

void KYRAutoTest::HandleInfoAcquireCommands(unsigned char cmd_two, unsigned char* param, int param_len)
{
    Run(InfoAcquireCommands(), cmd_two, param, param_len);
}
