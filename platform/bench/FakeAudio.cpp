#include "platform/bench/FakeAudio.h"

#include "platform/bench/Services.h"

namespace bench {

int FakeAudio::InitInstance()
{
    return context_.state.flag("/audio/available") ? 1 : 0;
}

void FakeAudio::GetVolume(unsigned char& limit, unsigned char& volume)
{
    limit = static_cast<unsigned char>(context_.state.number("/audio/volume_limit"));
    volume = static_cast<unsigned char>(context_.state.number("/audio/volume"));
}

KYRAudio::MuteState FakeAudio::GetMuteState(AudioChannel channel)
{
    return static_cast<MuteState>(context_.state.numberAt("/audio/mute", channel).value_or(0));
}

}  // namespace bench

KYRAudio* KYR_GetAudioService()
{
    return bench::installedService(&bench::Services::audio, "/audio/available");
}
