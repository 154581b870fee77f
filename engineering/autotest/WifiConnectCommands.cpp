#include <array>

#include "KYRWifi.h"
#include "engineering/autotest/KYRAutoTest.h"
#include "engineering/autotest/NetworkInterfaces.h"
#include "engineering/base/Log.h"

#undef KYR_LOG_FUNCTION
#define KYR_LOG_FUNCTION "HandleWifiConnectCommands"

namespace {

constexpr int kWifiProcess = 1;

}  // namespace

std::span<const Command> KYRAutoTest::WifiConnectCommands()
{
    static constexpr auto kCommands = std::to_array<Command>({
        // cmd_two, least number of parameters, name, action
        {0x00, 1, "start Wi-Fi",
         [](KYRAutoTest& engine, Params params) {
             if (params[0] != 1 || engine.m_nWifiModuleReady != 0)
                 return;
             KYRAppMgrService* const appMgr = KYR_GetAppMgrService();
             if (appMgr == nullptr) {
                 KYR_LOG_ERROR("HandleWifiConnectCommands, no application manager, Wi-Fi not started");
                 return;
             }
             appMgr->RequestStartModuleProcess(kWifiProcess, MODULE_ENGINEERING);
             KYR_LOG_INFO("HandleWifiConnectCommands RequestStartModuleProcess, wifiservice");
         }},
        {0x05, 0, "BT name",
         [](KYRAutoTest& engine, Params) {
             if (engine.m_nWifiModuleReady != 0)
                 ReplyText(kWifiConnect, 0x05, engine.BtAttribute(KYRBtType::ATTRIBUTE_LOCAL_NAME));
         }},
        {0x06, 0, "Wi-Fi text",
         [](KYRAutoTest& engine, Params) {
             if (engine.m_nWifiModuleReady == 0)
                 return;
             KYRWifi* const wifi = KYR_GetWifiService();
             if (wifi == nullptr)
                 KYR_LOG_ERROR("HandleWifiConnectCommands, no Wi-Fi service, no text");
             ReplyText(kWifiConnect, 0x06, wifi != nullptr ? wifi->GetText() : std::string());
         }},
        {0x07, 0, "IPv4 address",
         [](KYRAutoTest& engine, Params) {
             if (engine.m_nWifiModuleReady != 0)
                 ReplyText(kWifiConnect, 0x07, GetWiFiInterfaceIP());
         }},
        {0x09, 0, "Wi-Fi ready",
         [](KYRAutoTest& engine, Params) {
             Reply(kWifiConnect, 0x09, {static_cast<unsigned char>(engine.m_nWifiModuleReady)});
         }},
    });
    static_assert(CodesAscend(kCommands));
    return kCommands;
}

void KYRAutoTest::HandleWifiConnectCommands(unsigned char cmd_two, unsigned char* param, int param_len)
{
    Run(WifiConnectCommands(), cmd_two, param, param_len);
}
