#pragma once

#include <KYRAppMgr.h>

#include <map>
#include <mutex>
#include <optional>

#include "platform/bench/FakeContext.h"
#include "platform/runtime/TimerService.h"

namespace bench {

/// The application manager: keeps the start actions and starts modules with them, on the listener thread.
class FakeAppManager : public KYRAppMgrService
{
public:
    /// @param timers for the delay of a requested start; not owned
    FakeAppManager(const FakeContext& context, runtime::TimerService& timers);

    /// As cancelStarts().
    ~FakeAppManager() override;

    int InitInstance() override;
    void NotifyModuleInitBegin(ServiceModule module) override;
    void NotifyModuleReady(ServiceModule module) override;
    void SetStartServiceAction(ServiceModule module, StartAction action) override;
    int RequestStartModuleProcess(int process, int requester) override;

    /// The service has started: if it has reported ready, starts and reports the boot modules. Any thread.
    void serviceInitialised();

    /// Runs the start action of a module on the calling thread.
    /// @returns its result; nothing if no action is registered.
    std::optional<int> startModule(int module);

    /// Starts a module and tells the listeners. Listener thread.
    void bringUp(int module);

    /// Cancels the requested starts that are still delayed. Not on the timer thread.
    void cancelStarts();

private:
    const FakeContext context_;
    runtime::TimerService& timers_;
    std::mutex mutex_;
    std::map<int, StartAction> startActions_;  // guarded by mutex_
    bool serviceReady_ = false;                // guarded by mutex_
};

}  // namespace bench
