#pragma once

#include "IKYRService.h"

/// The platform's service modules, as far as this service names them. Any other number may occur.
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

/// A module that has been started.
struct AppBootInfo {
    ServiceModule module;
};

class IKYRAppListener
{
public:
    virtual ~IKYRAppListener() = default;

    /// A module has been started. Listener thread.
    virtual void OnModuleStatusChanged(AppBootInfo& info) { static_cast<void>(info); }
};

/// The application manager: brings the head unit's modules up. Every operation may be called from any thread.
class KYRAppMgrService : public IKYRService<IKYRAppListener>
{
public:
    /// Starts a module on this process's behalf. Runs on a thread of the application manager.
    /// @returns non-zero when the module is started.
    using StartAction = int (*)(ServiceModule);

    /// Connects to the application manager.
    /// @returns 1, or 0 when it cannot be reached.
    virtual int InitInstance() = 0;

    /// This process has begun to bring `module` up.
    virtual void NotifyModuleInitBegin(ServiceModule module) = 0;

    /// `module` is up.
    virtual void NotifyModuleReady(ServiceModule module) = 0;

    /// Registers what starts `module` in this process; replaces an earlier action.
    virtual void SetStartServiceAction(ServiceModule module, StartAction action) = 0;

    /// Asks for the process of a module that is not running; returns at once. OnModuleStatusChanged() tells when the
    /// module is up.
    /// @param nProcess 1: the Wi-Fi service's process
    /// @param nRequester the module that asks, 14 for this service
    /// @returns 1 when the request was taken, else 0.
    virtual int RequestStartModuleProcess(int nProcess, int nRequester) = 0;
};

/// @returns the application manager, owned by the platform, or null when there is none.
KYRAppMgrService* KYR_GetAppMgrService();
