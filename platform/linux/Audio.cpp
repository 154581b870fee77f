#include "platform/linux/Audio.h"

#include <utility>

#include "platform/runtime/Listeners.h"

namespace unit {

Audio::Audio(const UnitConfig::Audio& config, std::unique_ptr<Mixer> mixer, Loop& loop, StatusBoard& board)
    : mixer_(config, std::move(mixer), loop,
             [this, &board](const MixerFollower::Level& level, const std::string& reason) {
                 take(level);
                 board.set("audio", reason.empty() ? State::kUp : State::kAbsent, reason);
             })
{
}

void Audio::take(const MixerFollower::Level& level)
{
    {
        const std::lock_guard lock(mutex_);
        if (std::exchange(level_, level).isMuted == level.isMuted) {
            return;
        }
    }
    runtime::tellListeners(*this, [&](IKYRAudioListener& listener) {
        listener.OnAudioMuteStateChanged(static_cast<MuteState>(level.isMuted ? kMuted : kNotMuted), CHANNEL_HARDWARE);
    });
}

void Audio::GetVolume(unsigned char& ucLimit, unsigned char& ucVolume)
{
    const std::lock_guard lock(mutex_);
    ucLimit = static_cast<unsigned char>(level_.limit);
    ucVolume = static_cast<unsigned char>(level_.volume);
}

KYRAudio::MuteState Audio::GetMuteState(AudioChannel)
{
    const std::lock_guard lock(mutex_);
    return static_cast<MuteState>(level_.isMuted ? kMuted : kNotMuted);
}

}  // namespace unit
