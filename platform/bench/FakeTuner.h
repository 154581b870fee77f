#pragma once

#include <KYRTuner.h>

#include "platform/bench/FakeContext.h"

namespace bench {

/// The tuner service: a frequency for each band, and stations to find.
class FakeTuner : public Fake<KYRTuner>
{
public:
    using Fake::Fake;

    int InitInstance() override;
    BandID GetCurrentBand() override;
    unsigned int GetFrequency(BandID band) override;
    void Play(BandID band, unsigned int frequency, unsigned int service, int audible) override;
    void SwitchBandRequest(BandID band) override;
    void Seek(BandID band, int direction) override;
    void AutoStore() override;
    void Scan(BandID band) override;
    void SwitchRdsAFSetting(unsigned char on) override;
    void SwitchRdsTASetting(unsigned char on) override;

private:
    void tune(BandID band, int frequency);
};

}  // namespace bench
