#pragma once

#include <IKYRListener.h>
#include <KYRSource.h>

#include <atomic>
#include <map>
#include <memory>
#include <string>

#include "platform/linux/ApplicationManager.h"
#include "platform/linux/Bus.h"
#include "platform/linux/Status.h"
#include "platform/linux/UnitConfig.h"

namespace unit {

/// @param player the end of its name on the bus
/// @param interface the end of the interface's name: "Player", "TrackList"
BusObject::Address addressOfPlayer(const std::string& player, const std::string& interface);

/// The source manager over a table: a source is a systemd unit, which is started and stopped, or an MPRIS player, which
/// plays and pauses. A unit that fails, and a player that goes away, is not the current source any more.
class SourceTable : public IKYRListener<IKYRSourceListener>
{
public:
    enum : int { kStopped, kPlays };  ///< the status that the listeners are told

    SourceTable(const std::map<int, UnitConfig::AudioSource>& table, Bus& systemBus, Bus& sessionBus,
                StatusBoard& board);

    /// Stops the current source and starts this one, in the background.
    /// @returns 1; 0 if the table lacks the source, or its unit or player is missing.
    int request(int source);
    KYRSource::SourceID current() const { return static_cast<KYRSource::SourceID>(current_.load()); }

private:
    struct Entry {
        UnitConfig::AudioSource source;
        std::atomic<bool> isThere = false;
        std::unique_ptr<SystemdUnit> unit;  // of kUnit only
        std::unique_ptr<BusObject> player;  // of kPlayer only

        void call(bool starts, BusObject::Done done = {}) const;
    };

    void followUnit(int source, Entry& entry, Bus& systemBus);
    void followPlayer(int source, Entry& entry, Bus& sessionBus);
    void setThere(int source, Entry& entry, const std::string& reason);
    void switchOver(int from, int to);
    void plays(int source);
    void lose(int source);
    void tell(int source, int status);

    Loop& loop_;
    PartsStatus status_;
    std::atomic<int> current_ = KYRSource::SOURCE_NONE;
    std::map<int, Entry> entries_;  // the keys do not change
};

}  // namespace unit
