#pragma once

#include "platform/bench/FakeAppManager.h"
#include "platform/bench/FakeBluetooth.h"
#include "platform/bench/FakeContext.h"
#include "platform/bench/FakeServices.h"
#include "platform/bench/FakeSystem.h"
#include "platform/bench/FakeTuner.h"

namespace bench {

/// The services of one simulated head unit.
struct Services {
    Services(const FakeContext& shared, runtime::TimerService& timers) : context(shared), appManager(shared, timers) {}

    const FakeContext context;
    FakeAndroidAuto androidAuto{context};
    FakeAppManager appManager;
    FakeAudio audio{context};
    FakeBluetooth bluetooth{context};
    KYRCarPlay carPlay;
    FakeConfig config{context};
    FakeDeviceApp deviceApp{context};
    FakeFileManager fileManager{context};
    FakeLocation location;
    KYRMediaPlayer mediaPlayer;
    FakePower power{context};
    FakeSourceManager sourceManager{context};
    FakeSystem system{context};
    FakeSystemInfo systemInfo{context};
    FakeSystemMisc systemMisc{context};
    FakeSystemUpdate systemUpdate{context};
    FakeTuner tuner{context};
    KYRU6Persist u6Persist;
    FakeWifi wifi{context};
};

/// @returns the services that the platform's getters serve; null if no head unit is installed. Any thread.
Services* installedServices();

/// Calls `action` with the installed services.
/// @returns its result; a default value if no head unit is installed.
template <class Action>
auto withServices(Action action)
{
    Services* const services = installedServices();
    using Result = decltype(action(*services));
    if constexpr (std::is_void_v<Result>) {
        if (services != nullptr) {
            action(*services);
        }
    } else {
        return services == nullptr ? Result{} : action(*services);
    }
}

}  // namespace bench
