#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/Bus.h"
#include "platform/linux/Keyboard.h"
#include "platform/linux/Loop.h"
#include "platform/linux/Mixer.h"
#include "platform/linux/Status.h"
#include "platform/linux/UnitConfig.h"

namespace unit {

/// What an HMI does for the service, on a board without one: the volume and the equalizer's switch go to the sound
/// card, the media's actions to MPRIS players, and the keys of a device to the service. Each of them may be missing,
/// come late, and go.
class BoardHmi : private Bus::Follower
{
public:
    /// @param mixer of the card of [audio]; null if audio is off
    /// @param ready called once, on the loop's thread, when no signal of the service is missed from now on
    BoardHmi(UnitConfig config, std::unique_ptr<Mixer> mixer, std::function<void()> ready);
    ~BoardHmi() override;

    /// The states of service, audio, players and keyboard.
    StatusBoard& board() { return board_; }

private:
    struct Player {
        std::string name;
        std::unique_ptr<BusObject> object;
    };

    void onBus(GDBusConnection* connection, const std::string& reason) override;
    void setState(const std::string& part, const std::string& reason);
    void onSignal(const std::string& signal, GVariant* arguments);
    void setVolume(int steps);
    void setEqualizer(bool isOn);
    void act(int mediaType, int action);
    void select(int mediaType, std::size_t track);
    void reportTrack(int mediaType);
    void reportKey(int code, std::chrono::microseconds held);
    const Player* playerOf(int mediaType) const;
    void withTracks(const Player& player, std::function<void(const std::vector<std::string>& tracks)> action);
    void callEngineering(const char* method, int first, std::size_t second);

    const UnitConfig config_;
    const std::function<void()> ready_;
    StatusBoard board_{true};
    Loop loop_;
    Bus bus_{loop_, G_BUS_TYPE_SESSION};
    GDBusConnection* connection_ = nullptr;  // of the bus; of the loop
    bool isReady_ = false;                   // of the loop
    bool isServed_ = false;                  // whether the service is there; of the loop
    std::optional<BusObject> service_;
    std::map<int, Player> players_;  // by media type
    std::optional<MixerFollower> mixer_;
    std::optional<Keyboard> keyboard_;
};

}  // namespace unit
