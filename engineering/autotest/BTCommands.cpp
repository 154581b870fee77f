#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <optional>

#include "engineering/autotest/KYRAutoTest.h"
#include "engineering/base/Log.h"
#include "engineering/base/Outlets.h"

#undef KYR_LOG_FUNCTION
#define KYR_LOG_FUNCTION "HandleBTCommands"

namespace {

constexpr int kConnected = 1;

bool IsHexadecimal(const std::string& text)
{
    return std::ranges::all_of(text, [](unsigned char c) { return std::isxdigit(c) != 0; });
}

/// The bytes of an address text, in its order. Skips fields that are not two characters long.
/// @returns nothing if a field of two characters is not a hexadecimal number.
std::optional<std::vector<unsigned char>> AddressBytes(const std::string& address)
{
    std::vector<std::string> fields;
    splitString(fields, address, ":");
    std::vector<unsigned char> bytes;
    for (const std::string& field : fields) {
        if (field.size() != 2)
            continue;
        if (!IsHexadecimal(field))
            return std::nullopt;
        bytes.push_back(static_cast<unsigned char>(std::stoul(field, nullptr, 16)));
    }
    return bytes;
}

std::vector<unsigned char> IsConnected(const KYRBtConnectionState& state)
{
    return {static_cast<unsigned char>(state.nState == kConnected ? 1 : 0)};
}

/// The station's code of a music status; empty for a status without one.
std::vector<unsigned char> MusicCode(int status)
{
    switch (status) {
        case KYRBtType::MUSIC_PLAYING:
            return {1};
        case KYRBtType::MUSIC_PAUSED:
            return {0};
        default:
            return {};
    }
}

/// The station's code of a call state; empty for a state without one.
std::vector<unsigned char> CallCode(int state)
{
    // WIRE: 2 and 3 are swapped.
    static constexpr unsigned char kCodes[] = {0, 1, 3, 2};
    if (state < 0 || state >= static_cast<int>(std::size(kCodes)))
        return {};
    return {kCodes[state]};
}

}  // namespace

void splitString(std::vector<std::string>& pieces, const std::string& text, const std::string& separator)
{
    std::size_t start = 0;
    if (!separator.empty()) {
        for (auto pos = text.find(separator); pos != std::string::npos; pos = text.find(separator, start)) {
            while (start < pos && (text[start] == ' ' || text[start] == '\t'))
                ++start;
            pieces.push_back(text.substr(start, pos - start));
            start = pos + separator.size();
        }
    }
    if (start < text.size())
        pieces.push_back(text.substr(start));
}

std::string KYRAutoTest::BtAttribute(KYRBtType::Attribute attribute)
{
    std::string text;
    m_BtCom.GetAttribute(attribute, text);
    return text;
}

std::span<const Command> KYRAutoTest::BTCommands()
{
    static constexpr auto kCommands = std::to_array<Command>({
        // cmd_two, least number of parameters, name, action
        {0x01, 1, "play action 2 or 1",
         [](KYRAutoTest&, Params params) {
             if (params[0] == 0)
                 emit_on_auto_test_media_play_action_signal(MEDIA_TYPE_BT_AUDIO, MEDIA_PLAY_ACTION_2);
             else if (params[0] == 1)
                 emit_on_auto_test_media_play_action_signal(MEDIA_TYPE_BT_AUDIO, MEDIA_PLAY_ACTION_1);
         }},
        {0x02, 1, "play action 3 or 4",
         [](KYRAutoTest&, Params params) {
             if (params[0] == 0)
                 emit_on_auto_test_media_play_action_signal(MEDIA_TYPE_BT_AUDIO, MEDIA_PLAY_ACTION_3);
             else if (params[0] == 1)
                 emit_on_auto_test_media_play_action_signal(MEDIA_TYPE_BT_AUDIO, MEDIA_PLAY_ACTION_4);
         }},
        {0x03, 1, "call",
         [](KYRAutoTest& engine, Params params) {
             if (params[0] == 0)
                 engine.m_BtPhone.AcceptCall();
             else if (params[0] == 1)
                 engine.m_BtPhone.TerminateCall();
         }},
        {0x07, 0, "address",
         [](KYRAutoTest& engine, Params) {
             const std::string address = engine.BtAttribute(KYRBtType::ATTRIBUTE_LOCAL_ADDRESS);
             KYR_LOG_DEBUG("BT Address: %s", address.c_str());
             const auto bytes = AddressBytes(address);
             if (!bytes) {
                 KYR_LOG_ERROR("BT address %s is not hexadecimal, not sent", address.c_str());
                 return;
             }
             Reply(kBluetooth, 0x07, *bytes);
         }},
        {0x08, 0, "delete pairings",
         [](KYRAutoTest& engine, Params) {
             const int ret = engine.m_BtCom.DeletePairDeviceList();
             KYR_LOG_INFO("HandleBTCommands, DeletePairDeviceList, ret = %d", ret);
             // WIRE: the answer has the code of the tuner's group; the notice at the end of the deletion has this
             //       group's.
             Reply(kTuner, 0x08, {static_cast<unsigned char>(ret)});
         }},
        {0x0B, 1, "set capability 0",
         [](KYRAutoTest& engine, Params params) {
             if (params[0] <= 1)
                 engine.m_BtCom.SetCapability(KYRBtType::CAPABILITY_0, params[0]);
         }},
        {0x0C, 0, "power status",
         [](KYRAutoTest& engine, Params) {
             Reply(kBluetooth, 0x0C, {static_cast<unsigned char>(engine.m_nBtPowerStatus)});
         }},
        {0x0D, 0, "name",
         [](KYRAutoTest& engine, Params) {
             const std::string name = engine.BtAttribute(KYRBtType::ATTRIBUTE_LOCAL_NAME);
             KYR_LOG_DEBUG("BT Name: %s", name.c_str());
             ReplyText(kBluetooth, 0x0D, name);
         }},
        {0x0E, 0, "audio connection",
         [](KYRAutoTest& engine, Params) {
             const KYRBtConnectionState state = engine.m_BtMedia.GetMediaConnectionState();
             KYR_LOG_DEBUG("bt_audio_connect_state: %d----%s", state.nState, state.strText.c_str());
             Reply(kBluetooth, 0x0E, IsConnected(state));
         }},
        {0x0F, 0, "phone connection",
         [](KYRAutoTest& engine, Params) {
             const KYRBtConnectionState state = engine.m_BtPhone.GetPhoneConnectionState();
             KYR_LOG_DEBUG("bt_phone_connect_state: %d----%s", state.nState, state.strText.c_str());
             Reply(kBluetooth, 0x0F, IsConnected(state));
         }},
        {0x14, 0, "music status",
         [](KYRAutoTest& engine, Params) {
             const int status = engine.m_BtMedia.GetMusicPlayStatus();
             KYR_LOG_DEBUG("bt_music_status = %d", status);
             Reply(kBluetooth, 0x14, MusicCode(status));
         }},
        {0x15, 0, "call state",
         [](KYRAutoTest& engine, Params) {
             KYRTypeCallInfo info;
             engine.m_BtPhone.GetCurrentCallInfo(info);
             KYR_LOG_DEBUG("bt_call_state = %d", info.eCallState);
             Reply(kBluetooth, 0x15, CallCode(info.eCallState));
         }},
        {0x16, 1, "set capability 9",
         [](KYRAutoTest& engine, Params params) {
             if (params[0] <= 1)
                 engine.m_BtCom.SetCapability(KYRBtType::CAPABILITY_9, params[0]);
         }},
        {0x17, 0, "get capability 9",
         [](KYRAutoTest& engine, Params) {
             const int value = engine.m_BtCom.GetCapability(KYRBtType::CAPABILITY_9);
             Reply(kBluetooth, 0x17, {static_cast<unsigned char>(value)});
         }},
    });
    static_assert(CodesAscend(kCommands));
    return kCommands;
}

void KYRAutoTest::HandleBTCommands(unsigned char cmd_two, unsigned char* param, int param_len)
{
    Run(BTCommands(), cmd_two, param, param_len);
}

void KYRAutoTest::OnDeletePairStatusChanged(int bStatus)
{
    if (!m_bIsAutoTestMode)
        return;
    std::printf("[auto test]OnDeletePairStatus, bStatus = %d\n", bStatus);
    Reply(kBluetooth, 0x08, {static_cast<unsigned char>(bStatus)});
}

void KYRAutoTest::OnAnswerPairRequest(const std::string&, const std::string&, int nType,
                                      KYRBtType::PairRequestState eState)
{
    if (!m_bIsAutoTestMode || nType != 0)
        return;
    std::printf("OnAnswerPairRequest, pairState = %d\n", eState);
    // The adapter knows the request, so the answer names no device.
    if (eState == KYRBtType::PAIR_REQUESTED)
        m_BtCom.AnswerPair("", "", KYRBtType::PAIR_REQUESTED);
}
