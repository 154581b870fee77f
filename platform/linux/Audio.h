#pragma once

#include <KYRAudio.h>

#include <memory>
#include <mutex>

#include "platform/linux/Mixer.h"
#include "platform/linux/Status.h"

namespace unit {

/// Audio over an element of ALSA's simple mixer. While the mixer cannot be read, volume and highest volume are 0, and
/// nothing is muted.
class Audio : public KYRAudio
{
public:
    enum : int { kNotMuted, kMuted };

    /// @param loop not owned; stopped before this object is destroyed
    Audio(const UnitConfig::Audio& config, std::unique_ptr<Mixer> mixer, Loop& loop, StatusBoard& board);

    int InitInstance() override { return 1; }
    void GetVolume(unsigned char& ucLimit, unsigned char& ucVolume) override;

    /// All channels share the element's switch.
    MuteState GetMuteState(AudioChannel eChannel) override;

private:
    void take(const MixerFollower::Level& level);

    std::mutex mutex_;
    MixerFollower::Level level_;  // guarded by mutex_
    MixerFollower mixer_;         // the last one: it calls back
};

}  // namespace unit
