#pragma once

#include "IKYRService.h"

/// The audio service's types; use them as KYRAudio::...
class KYRAudioTypes
{
public:
    enum MuteState : int {};
    enum AudioChannel : int { CHANNEL_HARDWARE = 6 };
};

class IKYRAudioListener
{
public:
    virtual ~IKYRAudioListener() = default;

    /// Listener thread.
    virtual void OnAudioMuteStateChanged(KYRAudioTypes::MuteState eState, KYRAudioTypes::AudioChannel eChannel)
    {
        static_cast<void>(eState);
        static_cast<void>(eChannel);
    }
};

/// The audio service. Any thread.
class KYRAudio : public KYRAudioTypes, public IKYRService<IKYRAudioListener>
{
public:
    /// @returns 1 if the service is up, else 0.
    virtual int InitInstance() = 0;

    /// Fills in the maximum volume and the current volume, in steps of the volume control.
    virtual void GetVolume(unsigned char& ucLimit, unsigned char& ucVolume) = 0;

    virtual MuteState GetMuteState(AudioChannel eChannel) = 0;
};

/// @returns the audio service, owned by the platform, or null if there is none.
KYRAudio* KYR_GetAudioService();
