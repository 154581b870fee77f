#pragma once

#include "IKYRService.h"

namespace SystemMisc {

/// State of an antenna; 4 is good.
enum AntState : int { ANT_STATE_OK = 4 };

}  // namespace SystemMisc

/// Vehicle information. The service reads only the byte at offset 16.
struct _LCarInfo {
    unsigned char ucReserved[16];
    unsigned char ucValue;
    unsigned char ucReserved2[3];
};

/// All notifications arrive on the listener thread.
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

    /// @returns non-zero while the state is active, else 0.
    virtual int GetState() = 0;

    /// Restores the unit's factory settings.
    virtual void RestoreFactorySettings() = 0;
};

/// @returns the proxy, owned by the platform, or null if there is none.
KYRSystemMisc* KYR_GetSystemMiscProxy();
