#pragma once

#include <KYRBluetooth.h>

#include <string>

#include "platform/bench/FakeContext.h"

namespace bench {

/// The Bluetooth services behind KYRBtCom, KYRBtPhone and KYRBtMedia.
class FakeBluetooth
{
public:
    explicit FakeBluetooth(const FakeContext& context) : context_(context) {}

    /// Fills in `value`; leaves it unchanged if the adapter does not have the attribute.
    /// @returns 1 if the adapter has the attribute, else 0.
    int getAttribute(int attribute, std::string& value) const;

    /// Returns the result that the state contains, and reports the same to the listeners.
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

private:
    const FakeContext context_;
};

}  // namespace bench
