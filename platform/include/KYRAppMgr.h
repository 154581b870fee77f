#pragma once

#include "IKYRService.h"

/// The platform's service modules that this service names. Other numbers occur.
enum ServiceModule : int {
    MODULE_NONE = 1,
    MODULE_AUDIO = 2,
    MODULE_SOURCE = 3,
    MODULE_SYSTEM_PROXY = 5,
    MODULE_TUNER = 7,
    MODULE_BLUETOOTH = 8,
    MODULE_MEDIA_PLAYER = 9,
    MODULE_ENGINEERING = 14,
    MODULE_LOCATION = 15,
    MODULE_WIFI = 17,
    MODULE_DEVICE_APP = 20,
};

/// A module that has started.
struct AppBootInfo {
    ServiceModule module;
};

class IKYRAppListener
{
public:
    virtual ~IKYRAppListener() = default;

    /// A module has started. Listener thread.
    virtual void OnModuleStatusChanged(AppBootInfo& info) { static_cast<void>(info); }
};

/// The application manager: starts the head unit's modules. Any thread may call any operation.
class KYRAppMgrService : public IKYRService<IKYRAppListener>
{
public:
    /// Starts a module in this process. Runs on a thread of the application manager.
    /// @returns non-zero if the module has started, else 0.
    using StartAction = int (*)(ServiceModule);

    /// Connects to the application manager.
    /// @returns 1, or 0 if it cannot be reached.
    virtual int InitInstance() = 0;

    /// Reports that this process has begun to start `module`.
    virtual void NotifyModuleInitBegin(ServiceModule module) = 0;

    /// Reports that `module` is up.
    virtual void NotifyModuleReady(ServiceModule module) = 0;

    /// Registers the action that starts `module` in this process; replaces an earlier action.
    virtual void SetStartServiceAction(ServiceModule module, StartAction action) = 0;

    /// Requests the process of a module that is not running; returns at once. OnModuleStatusChanged() reports when the
    /// module is up.
    /// @param nProcess 1: the Wi-Fi service's process
    /// @param nRequester the requesting module, 14 for this service
    /// @returns 1 if the request was accepted, else 0.
    virtual int RequestStartModuleProcess(int nProcess, int nRequester) = 0;
};

/// @returns the application manager, owned by the platform, or null if there is none.
KYRAppMgrService* KYR_GetAppMgrService();
