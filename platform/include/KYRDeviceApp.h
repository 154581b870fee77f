#pragma once

#include <cstdint>

#include "IKYRService.h"

/// The device-app service's types; use them as KYRDeviceApp::...
class KYRDeviceAppTypes
{
public:
    /// A phone that is being connected for projection.
    struct _ConnectionInfo {
        std::int32_t nReserved[5];
        std::int32_t status;  // 2: the phone offers a choice of connections
    };
};

class IKYRDeviceAppListener
{
public:
    virtual ~IKYRDeviceAppListener() = default;

    /// Listener thread.
    virtual void OnConnectionStatusChanged(const KYRDeviceAppTypes::_ConnectionInfo& info) { static_cast<void>(info); }
};

/// The proxy of the device-app service: phone projection. Any thread.
class KYRDeviceApp : public KYRDeviceAppTypes, public IKYRService<IKYRDeviceAppListener>
{
public:
    /// @returns 1 if the service is up, else 0.
    virtual int InitInstance() = 0;

    /// Answers a phone's choice of connections.
    virtual void SelectConnection(int nConnection, int nOption) = 0;
};

/// @returns the proxy, owned by the platform, or null if there is none.
KYRDeviceApp* KYR_GetDeviceAppProxy();
