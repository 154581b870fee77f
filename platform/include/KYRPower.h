#pragma once

#include "IKYRService.h"

class IKYRPowerListener
{
public:
    virtual ~IKYRPowerListener() = default;
};

/// The system power proxy. Any thread.
class KYRPower : public IKYRService<IKYRPowerListener>
{
public:
    enum PowerState : int { PS_SHUT_DOWN = 3 };

    /// SwitchPowerMode() changes between these two power statuses; there are others.
    enum PowerStatus : int {
        POWER_STATUS_ON = 16,
        POWER_STATUS_OFF = 17,
    };

    virtual void SetPowerState(PowerState eState) = 0;

    /// @returns the power state as a small number that the platform defines.
    virtual int GetPowerState() = 0;

    virtual int GetPowerStatus() = 0;

    /// Switches the unit's power mode on (1) or off (0).
    virtual void SwitchPowerMode(int nOn) = 0;

    virtual int GetCurScreenLightType() = 0;

    /// Restarts the unit; returns before the restart.
    virtual void RestartSystem() = 0;
};

/// @returns the proxy, owned by the platform, or null if there is none.
KYRPower* KYR_GetSystemPowerProxy();
