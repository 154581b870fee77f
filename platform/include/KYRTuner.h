#pragma once

#include "IKYRService.h"
#include "KYRTypes.h"

/// The tuner service's types; use them as KYRTuner::...
class KYRTunerTypes
{
public:
    enum BandID : int {
        BAND_0 = 0,
        BAND_FM = 1,
        BAND_3 = 3,
        BAND_4 = 4,
    };
};

class IKYRRadioListener
{
public:
    virtual ~IKYRRadioListener() = default;

    /// The frequency has changed. Frequencies are in the tuner's unit for the band (FM: 10 kHz).
    /// Listener thread.
    virtual void OnFrequencyChanged(KYRTunerTypes::BandID eBand, unsigned int nValue, unsigned int nFrequency)
    {
        static_cast<void>(eBand);
        static_cast<void>(nValue);
        static_cast<void>(nFrequency);
    }

    /// A traffic announcement has begun (active 1) or ended (0). Listener thread.
    virtual void OnTAChanged(unsigned int nFrequency, int nActive)
    {
        static_cast<void>(nFrequency);
        static_cast<void>(nActive);
    }
};

/// The tuner service. Any thread. Operations that tune return at once; OnFrequencyChanged() reports the result.
class KYRTuner : public KYRTunerTypes, public IKYRService<IKYRRadioListener>
{
public:
    /// @returns 1 if the service is up, else 0.
    virtual int InitInstance() = 0;

    virtual BandID GetCurrentBand() = 0;

    /// @returns the band's current frequency in the tuner's unit; 0 for a band that the tuner does not have.
    virtual unsigned int GetFrequency(BandID eBand) = 0;

    /// Tunes to `nFrequency` on the band.
    /// @param nService DAB service, 0 for none
    /// @param bAudible KYR_TRUE: also switches the sound
    virtual void Play(BandID eBand, unsigned int nFrequency, unsigned int nService, int bAudible) = 0;

    virtual void SwitchBandRequest(BandID eBand) = 0;

    /// Goes to the next station.
    /// @param nDirection 1 up, 0 down; wraps at the band's end
    virtual void Seek(BandID eBand, int nDirection) = 0;

    /// Searches the band and stores the stations.
    virtual void AutoStore() = 0;

    /// Plays each station of the band for a moment.
    virtual void Scan(BandID eBand) = 0;

    /// Switch the alternative frequencies and the traffic announcements of RDS: 0 off, else on.
    virtual void SwitchRdsAFSetting(unsigned char ucOn) = 0;
    virtual void SwitchRdsTASetting(unsigned char ucOn) = 0;
};

/// @returns the tuner service, owned by the platform, or null if there is none.
KYRTuner* KYR_GetTunerService();
