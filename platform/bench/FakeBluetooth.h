#pragma once

#include <KYRBluetooth.h>

#include <functional>
#include <string>

#include "platform/bench/FakeContext.h"

namespace bench {

/// The Bluetooth services, which KYRBtCom, KYRBtPhone and KYRBtMedia reach.
class FakeBluetooth
{
public:
    explicit FakeBluetooth(const FakeContext& context) : context_(context) {}

    /// Fills `value`; leaves it as it is for an attribute that the adapter does not have.
    /// @returns 1 when it was filled, else 0.
    int getAttribute(int attribute, std::string& value) const;

    /// The result stands in the state; listeners are told the same.
    int deletePairings();

    void setCapability(int capability, int value);
    int capability(int capability) const;
    void answerPair(const std::string& address, const std::string& name, int state);

    void acceptCall();
    void terminateCall();
    KYRBtConnectionState phoneConnection() const;
    KYRBtType::CallState callState() const;

    KYRBtConnectionState mediaConnection() const;
    KYRBtType::MusicStatus musicStatus() const;

    /// Tells the listener of every KYRBtCom there is, holding the lock that KYRBtCom's destructor takes: a client that
    /// is gone is not told any more. Listener thread.
    static void tellClients(const std::function<void(IKYRBtComListener&)>& tell);

private:
    const FakeContext context_;
};

}  // namespace bench
