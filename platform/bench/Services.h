#pragma once

#include "platform/bench/FakeAppManager.h"
#include "platform/bench/FakeAudio.h"
#include "platform/bench/FakeBluetooth.h"
#include "platform/bench/FakeConfig.h"
#include "platform/bench/FakeContext.h"
#include "platform/bench/FakePower.h"
#include "platform/bench/FakeProjection.h"
#include "platform/bench/FakeProxies.h"
#include "platform/bench/FakeSourceManager.h"
#include "platform/bench/FakeSystem.h"
#include "platform/bench/FakeSystemMisc.h"
#include "platform/bench/FakeTuner.h"
#include "platform/bench/FakeWifi.h"

namespace bench {

/// The services of one simulated head unit.
struct Services {
    Services(const FakeContext& shared, runtime::TimerService& timers);

    const FakeContext context;
    FakeAndroidAuto androidAuto;
    FakeAppManager appManager;
    FakeAudio audio;
    FakeBluetooth bluetooth;
    FakeCarPlay carPlay;
    FakeConfig config;
    FakeDeviceApp deviceApp;
    FakeFileManager fileManager;
    FakeLocation location;
    FakeMediaPlayer mediaPlayer;
    FakePower power;
    FakeSourceManager sourceManager;
    FakeSystem system;
    FakeSystemInfo systemInfo;
    FakeSystemMisc systemMisc;
    FakeSystemUpdate systemUpdate;
    FakeTuner tuner;
    FakeU6Persist u6Persist;
    FakeWifi wifi;
};

/// @returns the services that the platform's getters serve, null when no head unit is installed. Any thread.
Services* installedServices();

/// @param available the row of the state that can take the service away
/// @returns the fake; null when it is not available, or no head unit is installed. Any thread.
template <class Fake>
Fake* installedService(Fake Services::*fake, StateKey available)
{
    Services* const services = installedServices();
    return services != nullptr && services->context.state.flag(available) ? &(services->*fake) : nullptr;
}

}  // namespace bench
