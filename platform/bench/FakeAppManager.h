#pragma once

#include <KYRAppMgr.h>

#include <map>
#include <mutex>
#include <optional>

#include "platform/bench/FakeContext.h"
#include "platform/runtime/TimerService.h"

namespace bench {

/// The application manager: keeps the start actions and brings modules up with them, on the listener thread.
class FakeAppManager : public KYRAppMgrService
{
public:
    /// @param timers what the delay of a requested start runs on; not owned
    FakeAppManager(const FakeContext& context, runtime::TimerService& timers);

    /// As cancelStarts().
    ~FakeAppManager() override;

    int InitInstance() override;
    void NotifyModuleInitBegin(ServiceModule module) override;
    void NotifyModuleReady(ServiceModule module) override;
    void SetStartServiceAction(ServiceModule module, StartAction action) override;
    int RequestStartModuleProcess(int process, int requester) override;

    /// The service has come up: starts and reports the boot modules, when it has said that it is ready. Any thread.
    void serviceInitialised();

    /// Runs the start action of a module on the calling thread.
    /// @returns its result; nothing when none is registered.
    std::optional<int> startModule(int module);

    /// Starts a module and tells the listeners. Listener thread.
    void bringUp(int module);

    /// Gives up the requested starts whose delay has not passed. Not on the timer thread.
    void cancelStarts();

private:
    const FakeContext context_;
    runtime::TimerService& timers_;
    std::mutex mutex_;
    std::map<int, StartAction> startActions_;  // guarded by mutex_
    bool serviceReady_ = false;                // guarded by mutex_
};

}  // namespace bench
