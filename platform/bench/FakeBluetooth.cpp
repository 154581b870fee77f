#include "platform/bench/FakeBluetooth.h"

#include "platform/bench/Services.h"
#include "platform/runtime/BluetoothClients.h"
#include "platform/runtime/DeliveryTurns.h"

namespace bench {
namespace {

constexpr const char* kBluetoothService = "bluetooth";

/// Calls `action` with the adapter.
/// @returns its result; a default value if no head unit is installed.
template <class Action>
auto withAdapter(Action action)
{
    return withServices([&](Services& services) { return action(services.bluetooth); });
}

}  // namespace

int FakeBluetooth::getAttribute(int attribute, std::string& value) const
{
    const auto text = context_.state.textAt("/bluetooth/attributes", attribute);
    if (!text) {
        return 0;
    }
    value = *text;
    return 1;
}

int FakeBluetooth::deletePairings()
{
    context_.calls.add(kBluetoothService, "DeletePairDeviceList", {});
    const int result = context_.state.number("/bluetooth/delete_pairings_result");
    // The reply to the command comes first, as on a unit, where the deletion takes a while.
    context_.events.post([result, turn = runtime::DeliveryTurns::instance().current()] {
        runtime::DeliveryTurns::instance().waitForEnd(turn);
        runtime::tellBluetoothClients(
            [result](IKYRBtComListener& listener) { listener.OnDeletePairStatusChanged(result); });
    });
    return result;
}

void FakeBluetooth::setCapability(int capability, int value)
{
    context_.calls.add(kBluetoothService, "SetCapability", {capability, value});
    context_.state.set("/bluetooth/capabilities/" + std::to_string(capability), value);
}

int FakeBluetooth::capability(int capability) const
{
    return context_.state.numberAt("/bluetooth/capabilities", capability).value_or(0);
}

void FakeBluetooth::answerPair(const std::string& address, const std::string& name, int state)
{
    context_.calls.add(kBluetoothService, "AnswerPair", {address, name, state});
}

void FakeBluetooth::acceptCall()
{
    context_.calls.add(kBluetoothService, "AcceptCall", {});
}

void FakeBluetooth::terminateCall()
{
    context_.calls.add(kBluetoothService, "TerminateCall", {});
}

KYRBtConnectionState FakeBluetooth::phoneConnection() const
{
    return {context_.state.number("/bluetooth/phone_connection/state"),
            context_.state.text("/bluetooth/phone_connection/text")};
}

KYRBtType::CallState FakeBluetooth::callState() const
{
    return static_cast<KYRBtType::CallState>(context_.state.number("/bluetooth/call_state"));
}

KYRBtConnectionState FakeBluetooth::mediaConnection() const
{
    return {context_.state.number("/bluetooth/media_connection/state"),
            context_.state.text("/bluetooth/media_connection/text")};
}

KYRBtType::MusicStatus FakeBluetooth::musicStatus() const
{
    return static_cast<KYRBtType::MusicStatus>(context_.state.number("/bluetooth/music_status"));
}

}  // namespace bench

int KYRBtCom::GetAttribute(KYRBtType::Attribute eAttribute, std::string& strValue)
{
    return bench::withAdapter([&](auto& adapter) { return adapter.getAttribute(eAttribute, strValue); });
}

int KYRBtCom::DeletePairDeviceList()
{
    return bench::withAdapter([](auto& adapter) { return adapter.deletePairings(); });
}

void KYRBtCom::SetCapability(KYRBtType::Capability eCapability, int nValue)
{
    bench::withAdapter([&](auto& adapter) { adapter.setCapability(eCapability, nValue); });
}

int KYRBtCom::GetCapability(KYRBtType::Capability eCapability)
{
    return bench::withAdapter([&](auto& adapter) { return adapter.capability(eCapability); });
}

void KYRBtCom::AnswerPair(const std::string& strAddress, const std::string& strName, KYRBtType::PairRequestState eState)
{
    bench::withAdapter([&](auto& adapter) { adapter.answerPair(strAddress, strName, eState); });
}

void KYRBtPhone::AcceptCall()
{
    bench::withAdapter([](auto& adapter) { adapter.acceptCall(); });
}

void KYRBtPhone::TerminateCall()
{
    bench::withAdapter([](auto& adapter) { adapter.terminateCall(); });
}

KYRBtConnectionState KYRBtPhone::GetPhoneConnectionState()
{
    return bench::withAdapter([](auto& adapter) { return adapter.phoneConnection(); });
}

void KYRBtPhone::GetCurrentCallInfo(KYRTypeCallInfo& info)
{
    bench::withAdapter([&](auto& adapter) { info.eCallState = adapter.callState(); });
}

KYRBtConnectionState KYRBtMedia::GetMediaConnectionState()
{
    return bench::withAdapter([](auto& adapter) { return adapter.mediaConnection(); });
}

KYRBtType::MusicStatus KYRBtMedia::GetMusicPlayStatus()
{
    return bench::withAdapter([](auto& adapter) { return adapter.musicStatus(); });
}

// The Bluetooth services run in the process of the bench: there is no client to start.
void KYR_CreateBlueTooth() {}
