#pragma once

#include "IKYRService.h"

namespace SystemMisc {

/// State of an antenna; 4 is the good one.
enum AntState : int { ANT_STATE_OK = 4 };

}  // namespace SystemMisc

/// Vehicle information. Only the byte at offset 16 is read here.
struct _LCarInfo {
    unsigned char ucReserved[16];
    unsigned char ucValue;
    unsigned char ucReserved2[3];
};

/// Every notification arrives on the listener thread.
class IKYRSystemMiscListener
{
public:
    virtual ~IKYRSystemMiscListener() = default;

    /// @param nSpeed in the vehicle's own unit
    virtual void OnCarSpeedChange(unsigned int nSpeed) { static_cast<void>(nSpeed); }
    virtual void OnRadioAntStateChange(SystemMisc::AntState eState) { static_cast<void>(eState); }
    virtual void OnGpsAntStateChange(SystemMisc::AntState eState) { static_cast<void>(eState); }
    virtual void OnLCarInfoChange(_LCarInfo info) { static_cast<void>(info); }

    /// The unit is being reset to its factory state.
    virtual void OnFactoryResetMode() {}
};

/// The proxy of the vehicle-data service. Any thread.
class KYRSystemMisc : public IKYRService<IKYRSystemMiscListener>
{
public:
    virtual SystemMisc::AntState GetRadioAntState() = 0;
    virtual SystemMisc::AntState GetDabAntState() = 0;
    virtual SystemMisc::AntState GetGpsAntState() = 0;

    /// @returns 0, or any other number while the state is active.
    virtual int GetState() = 0;

    /// Puts the unit's settings back to those of the factory.
    virtual void RestoreFactorySettings() = 0;
};

/// @returns the proxy, owned by the platform, or null when there is none.
KYRSystemMisc* KYR_GetSystemMiscProxy();
