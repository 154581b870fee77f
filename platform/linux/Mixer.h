#pragma once

#include <poll.h>

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/Loop.h"
#include "platform/linux/UnitConfig.h"
#include "platform/runtime/Report.h"

namespace unit {

/// The simple mixer of a sound card. For one thread. Every call may block for as long as the card's driver or its
/// plugin does, and throws std::runtime_error if it fails: the reason and what helps.
class Mixer
{
public:
    /// The playback volume of an element, in the card's own steps.
    struct Level {
        long least = 0;
        long most = 0;
        long now = 0;
        bool isMuted = false;  ///< false for an element that has no switch
    };

    virtual ~Mixer() = default;

    virtual void open() = 0;
    virtual void close() = 0;

    /// What poll() waits for until something has changed.
    virtual std::vector<pollfd> descriptors() = 0;

    /// Takes the changes in; fails once the card has gone.
    virtual void takeChanges() = 0;

    virtual Level level(const std::string& element) = 0;
    virtual void setVolume(const std::string& element, long volume) = 0;
    virtual void setSwitch(const std::string& element, bool isOn) = 0;
};

/// @returns the mixer of a card as ALSA names it.
std::unique_ptr<Mixer> alsaMixer(const std::string& card);

/// Follows an element of a mixer on a thread of its own, and opens the mixer again a second after it has failed. A
/// mixer that hangs holds up this thread only.
class MixerFollower
{
public:
    /// In the station's steps.
    struct Level {
        int limit = 0;
        int volume = 0;
        bool isMuted = false;
    };

    /// Gets the level each time the mixer has answered, on the loop's thread.
    /// @param reason why there is none; empty if there is one
    using Watcher = std::function<void(const Level& level, const std::string& reason)>;

    /// @param loop not owned; stopped before this object is destroyed
    MixerFollower(UnitConfig::Audio config, std::unique_ptr<Mixer> mixer, Loop& loop, Watcher watcher,
                  runtime::Reporter reporter = runtime::report);

    /// Leaves a mixer that hangs behind, with its thread.
    ~MixerFollower();
    MixerFollower(const MixerFollower&) = delete;
    MixerFollower& operator=(const MixerFollower&) = delete;

    /// Ask for a change and return at once; a failure is reported. Any thread.
    void setVolume(int steps);
    void setSwitch(const std::string& element, bool isOn);

private:
    struct Work;

    void begun();
    void done(const Level& level, const std::string& reason);

    Loop& loop_;
    const Watcher watcher_;
    const std::string hangs_;          // the reason
    host::GlibPtr<GSource> patience_;  // of the loop
    std::shared_ptr<Work> work_;
    std::thread thread_;
};

}  // namespace unit
