#pragma once

#include <string>

#include "IKYRService.h"

class IKYRWifiListener
{
public:
    virtual ~IKYRWifiListener() = default;
};

/// The Wi-Fi service. Any thread.
class KYRWifi : public IKYRService<IKYRWifiListener>
{
public:
    /// @returns 1 when the service is up, else 0.
    virtual int InitInstance() = 0;

    /// @returns the name under which the unit's access point is seen.
    virtual std::string GetText() = 0;
};

/// @returns the service, owned by the platform, or null when there is none.
KYRWifi* KYR_GetWifiService();
