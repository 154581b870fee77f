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
    /// @returns 1 if the service is up, else 0.
    virtual int InitInstance() = 0;

    /// @returns the name of the unit's access point.
    virtual std::string GetText() = 0;
};

/// @returns the service, owned by the platform, or null if there is none.
KYRWifi* KYR_GetWifiService();
