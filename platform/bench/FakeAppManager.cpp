#include "platform/bench/FakeAppManager.h"

#include "platform/runtime/Listeners.h"

namespace bench {
namespace {

constexpr const char* kAppManagerService = "app_manager";
constexpr int kWifiProcess = 1;

}  // namespace

FakeAppManager::FakeAppManager(const FakeContext& context, runtime::TimerService& timers)
    : context_(context), timers_(timers)
{
}

FakeAppManager::~FakeAppManager()
{
    cancelStarts();
}

int FakeAppManager::InitInstance()
{
    return context_.state.flag("/app_manager/available") ? 1 : 0;
}

void FakeAppManager::NotifyModuleInitBegin(ServiceModule module)
{
    context_.calls.add(kAppManagerService, "NotifyModuleInitBegin", {int{module}});
}

void FakeAppManager::NotifyModuleReady(ServiceModule module)
{
    {
        const std::lock_guard lock(mutex_);
        serviceReady_ = true;
    }
    context_.calls.add(kAppManagerService, "NotifyModuleReady", {int{module}});
}

void FakeAppManager::SetStartServiceAction(ServiceModule module, StartAction action)
{
    {
        const std::lock_guard lock(mutex_);
        startActions_[module] = action;
    }
    context_.calls.add(kAppManagerService, "SetStartServiceAction", {int{module}});
}

int FakeAppManager::RequestStartModuleProcess(int process, int requester)
{
    context_.calls.add(kAppManagerService, "RequestStartModuleProcess", {process, requester});
    if (process != kWifiProcess) {
        return 0;
    }
    if (!context_.state.flag("/app_manager/starts_on_request")) {
        return 1;
    }
    const std::chrono::milliseconds delay(context_.state.number("/app_manager/start_delay_ms"));
    timers_.after(
        delay, [this] { context_.events.post([this] { bringUp(MODULE_WIFI); }); }, this);
    return 1;
}

void FakeAppManager::serviceInitialised()
{
    {
        const std::lock_guard lock(mutex_);
        if (!serviceReady_) {
            return;
        }
    }
    for (const int module : context_.state.numbers("/app_manager/boot_modules")) {
        context_.events.post([this, module] { bringUp(module); });
    }
}

std::optional<int> FakeAppManager::startModule(int module)
{
    StartAction action = nullptr;
    {
        const std::lock_guard lock(mutex_);
        if (const auto found = startActions_.find(module); found != startActions_.end()) {
            action = found->second;
        }
    }
    if (action == nullptr) {
        return std::nullopt;
    }
    return action(static_cast<ServiceModule>(module));
}

void FakeAppManager::bringUp(int module)
{
    // An application manager reports the modules that it has started, even if the start action fails.
    startModule(module);
    runtime::tellListeners(*this, [module](IKYRAppListener& listener) {
        AppBootInfo info{static_cast<ServiceModule>(module)};
        listener.OnModuleStatusChanged(info);
    });
}

void FakeAppManager::cancelStarts()
{
    timers_.cancelAllOf(this);
}

}  // namespace bench
