#pragma once

#include <KYRBluetooth.h>

#include <map>
#include <mutex>
#include <string>

#include "platform/linux/BusTree.h"
#include "platform/linux/Status.h"
#include "platform/linux/UnitConfig.h"

namespace unit {

/// The adapter and the media profile over BlueZ. Any thread, but for construction and destruction.
class Bluetooth : private Bus::Follower
{
public:
    /// @param isAgent whether the unit answers requests to pair
    Bluetooth(UnitConfig::Bluetooth config, Bus& systemBus, StatusBoard& board, bool isAgent);
    ~Bluetooth() override;

    /// The address, the alias, and as version the configured text or the adapter's Modalias.
    int getAttribute(KYRBtType::Attribute attribute, std::string& value) const;

    /// Removes the paired devices; the listeners hear 1 if all are gone, else 0.
    /// @returns whether there is an adapter.
    bool deletePairings();

    /// Stock Linux has no counterpart: remembered.
    void setCapability(int capability, int value);
    int capability(int capability) const;

    /// Answers the request to pair that waits, if there is one. PAIR_REQUESTED accepts it.
    void answerPair(KYRBtType::PairRequestState state);

    /// Of the first connected media device; the text is its name.
    KYRBtConnectionState mediaConnection() const;
    KYRBtType::MusicStatus musicStatus() const;

private:
    /// What the getters answer.
    struct Seen {
        std::string adapter;  // its path; empty if there is none
        std::map<int, std::string> attributes;
        bool powered = false;
        KYRBtConnectionState media;
        KYRBtType::MusicStatus music{};
    };

    void onBus(GDBusConnection* connection, const std::string& reason) override;
    void look();
    void showState(const std::string& reason);
    std::string findAdapter() const;
    void removePairings(std::uint64_t turn);
    void offerAgent();
    void requestPairing(GDBusMethodInvocation* invocation, const char* device);
    void endPairing(bool accepted);

    const UnitConfig::Bluetooth config_;
    Bus& bus_;
    StatusBoard& board_;
    const bool isAgent_;

    mutable std::mutex mutex_;
    Seen seen_;                        // guarded by mutex_
    std::map<int, int> capabilities_;  // guarded by mutex_

    // Of the loop.
    host::GlibPtr<GDBusInterfaceSkeleton> agent_;
    host::GlibPtr<GDBusMethodInvocation> pairing_;  // the request that waits; null if there is none
    host::GlibPtr<GSource> pairingLimit_;
    BusTree bluez_;
};

}  // namespace unit
