#pragma once

#include "IKYRService.h"

/// The CarPlay service's types; use them as KYRCarPlay::...
class KYRCarPlayTypes
{
public:
    enum CarPlayConnectStatus : int {
        CARPLAY_CONNECTED = 1,
        CARPLAY_DISCONNECTING = 2,
        CARPLAY_DISCONNECTED = 3,
    };
};

class IKYRCarPlayListener
{
public:
    virtual ~IKYRCarPlayListener() = default;

    /// Listener thread.
    virtual void OnStatusChange(KYRCarPlayTypes::CarPlayConnectStatus eStatus) { static_cast<void>(eStatus); }
};

/// The CarPlay service.
class KYRCarPlay : public KYRCarPlayTypes, public IKYRService<IKYRCarPlayListener>
{
};

/// @returns the service, owned by the platform, or null if there is none.
KYRCarPlay* KYR_GetCarPlayService();
