#pragma once

#include <KYRAudio.h>

#include "platform/bench/FakeContext.h"

namespace bench {

/// The audio service: volume and mute as the state has them.
class FakeAudio : public KYRAudio
{
public:
    explicit FakeAudio(const FakeContext& context) : context_(context) {}

    int InitInstance() override;
    void GetVolume(unsigned char& limit, unsigned char& volume) override;
    MuteState GetMuteState(AudioChannel channel) override;

private:
    const FakeContext context_;
};

}  // namespace bench
