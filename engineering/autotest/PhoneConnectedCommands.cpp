#include <array>
#include <cstdio>

#include "KYRAndroidAuto.h"
#include "engineering/autotest/IdentityRecord.h"
#include "engineering/autotest/KYRAutoTest.h"
#include "engineering/autotest/NetworkInterfaces.h"
#include "engineering/base/Log.h"

#undef KYR_LOG_FUNCTION
#define KYR_LOG_FUNCTION "HandlePhoneConnected"

namespace {

using Mac = std::array<unsigned char, 6>;

/// @returns the address in upper-case hexadecimal, `separator` between the bytes.
std::string MacText(const Mac& mac, const char* separator)
{
    std::string strText;
    for (const unsigned char byte : mac) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", byte);
        strText += strText.empty() ? "" : separator;
        strText += digits;
    }
    return strText;
}

/// WIRE: compares texts, so a record in lower case never matches.
bool IsStoredCarPlayMac(const std::string& strMac)
{
    const std::string strPath = IdentityRecordPath(kCarPlayMacAddress);
    std::string strStored;
    if (ReadRecord(strPath, strStored) == FileRead::kFailed) {
        KYR_LOG_ERROR("[FeedBackCarPlayMacAddress] open %s failed!!", strPath.c_str());
        return false;
    }
    return strStored == strMac;
}

}  // namespace

int KYRAutoTest::GetUsbInterfaceMac(Mac& mac)
{
    return FindUsbInterfaceMac(mac);
}

std::span<const Command> KYRAutoTest::PhoneConnectedCommands()
{
    static constexpr auto kCommands = std::to_array<Command>({
        // cmd_two, least number of parameters, name, action
        {0x01, 0, "CarPlay connected",
         [](KYRAutoTest& engine, Params) {
             Reply(kPhoneConnected, 0x01, {static_cast<unsigned char>(engine.m_bCarPlayConnected ? 1 : 0)});
         }},
        {0x05, 0, "Android Auto state",
         [](KYRAutoTest&, Params) {
             KYRAndroidAuto* const androidAuto = KYR_GetAAProxy();
             if (androidAuto == nullptr) {
                 KYR_LOG_ERROR("HandlePhoneConnected, no Android Auto proxy, no state");
                 return;
             }
             const int state = androidAuto->GetState();
             KYR_LOG_DEBUG("HandlePhoneConnected, AA_STATE = %d", state);
             Reply(kPhoneConnected, 0x05, {static_cast<unsigned char>(state)});
         }},
        {0x06, 0, "USB MAC",
         [](KYRAutoTest&, Params) {
             Mac mac{};
             GetUsbInterfaceMac(mac);
             ReplyText(kPhoneConnected, 0x06, MacText(mac, ""));
         }},
        {0x07, 0, "USB MAC is CarPlay's",
         [](KYRAutoTest&, Params) {
             Mac mac{};
             GetUsbInterfaceMac(mac);
             Reply(kPhoneConnected, 0x07, {static_cast<unsigned char>(IsStoredCarPlayMac(MacText(mac, ":")) ? 1 : 0)});
         }},
    });
    static_assert(CodesAscend(kCommands));
    return kCommands;
}

void KYRAutoTest::HandlePhoneConnected(unsigned char cmd_two, unsigned char* param, int param_len)
{
    Run(PhoneConnectedCommands(), cmd_two, param, param_len);
}
