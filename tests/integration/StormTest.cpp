// Runs the whole service in one process under all inputs at once: the station, D-Bus clients, events and state of the
// head unit, and timers, each on its own threads and as fast as possible. Mainly for ThreadSanitizer.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "KYRLog.h"
#include "engineering/KYREngineeringService_IPC.h"
#include "engineering/UARTMgr/KYRUARTManage.h"
#include "engineering/autotest/KYRAutoTest.h"
#include "engineering/base/KYRSingleton.h"
#include "platform/bench/HeadUnit.h"
#include "platform/bench/HeadUnitBus.h"
#include "platform/runtime/Root.h"
#include "tests/support/BusClient.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/RecordedWire.h"
#include "tests/support/TempDir.h"

namespace {

using nlohmann::json;
using testing::Each;
using testing::IsEmpty;
using testing::StartsWith;

constexpr int kCommands = 3000;
constexpr int kCallsPerClient = 300;
constexpr int kEvents = 2000;
constexpr int kStateChanges = 300;
constexpr int kExpiries = 200;

/// Discards errors and filters all other lines: the lock of a recorder would order the threads.
void silenceLog()
{
    ASSERT_EQ(zlog_init_from_string("[rules]\nengineering.ERROR \"/dev/null\"\n"), 0);
    liblog_category = zlog_get_category("engineering");
}

/// The service and the head unit around it. They last as long as the process, as the threads of GDBus do.
struct Service {
    Service()
    {
        silenceLog();
        setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1);
        runtime::setRoot(root.path().string());
        runtime::makeHeadUnitDirectories(root.path().string());
        // Shells would be by far the slowest part.
        unit.mergeState({{"app_manager", {{"start_delay_ms", 1}}}, {"system", {{"failing_commands", {"sync", "cp"}}}}});
        unit.install();
        std::string error;
        EXPECT_TRUE(unitBus.start(error)) << error;
        KYRSingleton<KYREngineeringService_IPC>::GetInstance()->Init();
        KYRSingleton<KYRUARTManage>::GetInstance();
    }

    tests::PrivateBus bus;
    tests::TempDir root;
    bench::HeadUnit unit;
    bench::HeadUnitBus unitBus{unit};
    RecordedWire station;
};

/// Commands of every group; those that switch auto-test mode and those that a timer delays for a second stay out.
void floodFromStation(Service& service)
{
    static const std::vector<std::uint8_t> kParams = {1, 0, '4', '2', 'A', 'F', '0', '1', '2', '3', '4', '5'};
    std::vector<std::pair<std::uint8_t, std::uint8_t>> commands;
    for (const KYRAutoTest::Group& group : KYRAutoTest::Groups()) {
        for (const Command& command : group.commands()) {
            if (group.code != 0x0F && !(group.code == 0x06 && command.code == 0x13)) {
                commands.emplace_back(group.code, command.code);
            }
        }
    }

    for (int i = 0; i < kCommands; ++i) {
        const auto [group, command] = commands[static_cast<std::size_t>(i) % commands.size()];
        service.station.sendCommand(group, command, kParams);
        service.station.sendCommand(0x0F, 0xFF);
    }
}

/// @param answers how many calls were answered correctly
void floodFromBus(Service& service, const std::string& marker, std::atomic<int>& answers)
{
    tests::BusClient client(service.bus.address());
    for (int i = 0; i < kCallsPerClient; ++i) {
        const std::string number = std::to_string(i % 80);
        if (client.callEngineering("uart_send_data", "(byte 0x8E, byte 0x7F, <[byte " + marker + "]>, uint16 1)") ==
            "()") {
            ++answers;
        }
        if (client.callEngineering("auto_test_set_track_index", "(byte 2, byte " + number + ")") == "()") {
            ++answers;
        }
        if (client.callEngineering("auto_test_feedback_key_event", "(byte " + number + ", byte 16)") == "()") {
            ++answers;
        }
    }
}

void floodFromHeadUnit(Service& service)
{
    const std::vector<std::pair<const char*, json>> events = {
        {"OnModuleStatusChanged", {{"module", 9}}},
        {"OnModuleStatusChanged", {{"module", 17}}},
        {"OnCarSpeedChange", {{"speed", 120}}},
        {"OnRadioAntStateChange", {{"state", 3}}},
        {"OnGpsAntStateChange", {{"state", 4}}},
        {"OnOpenBtStatusChanged", {{"status", 1}}},
        {"OnDeletePairStatusChanged", {{"status", 1}}},
        {"OnAnswerPairRequest", {{"address", "00:11"}, {"name", "phone"}, {"type", 1}, {"state", 2}}},
        {"OnFrequencyChanged", {{"band", 1}, {"value", 0}, {"frequency", 9470}}},
        {"OnTAChanged", {{"freq", 9470}, {"active", 1}}},
        {"OnAudioMuteStateChanged", {{"state", 1}, {"channel", 6}}},
        {"OnStatusChange", {{"status", 1}}},
        {"OnConnectionStatusChanged", {{"status", 2}}},
        {"OnAASatinfoChange", {{"satellites", {{5, 20}, {9, 35}, {12, 28}}}}},
        {"OnAALocationChange", {{"latitude", 16909060}, {"longitude", -1}}},
        {"OnLCarInfoChange", {{"value", 255}}},
        {"OnSourceStatusChanged", {{"source", 16}, {"status", 1}}},
        {"OnU6PersistDataChange", {{"module", 1}, {"value", 2}}},
        {"OnU6PersistFactoryResetMode", json::object()},
        {"OnFactoryResetMode", json::object()},
    };
    for (int i = 0; i < kEvents; ++i) {
        const auto& [name, arguments] = events[static_cast<std::size_t>(i) % events.size()];
        service.unit.raise(name, arguments);
    }
    service.unit.events().drain();
}

void changeState(Service& service)
{
    for (int i = 0; i < kStateChanges; ++i) {
        for (const char* path : {"/tuner/available", "/wifi/available", "/system_misc/available", "/audio/available"}) {
            service.unit.state().set(path, i % 2 == 0);
        }
        service.unit.state().set("/config/~1project~1project_name", "project " + std::to_string(i));
    }
    service.unit.mergeState({{"tuner", {{"available", true}}}, {"wifi", {{"available", true}}}});
}

/// Lets the timer of the engine expire again and again, each time as soon as the last expiry is visible.
/// @returns how often it did.
int runTimers(Service& service)
{
    const auto expired = std::make_shared<std::counting_semaphore<>>(0);
    service.unit.calls().additions().add([expired](const bench::Call& call) {
        if (call.op == "RestartSystem") {
            expired->release();
        }
    });
    int expiries = 0;
    for (int i = 0; i < kExpiries; ++i) {
        KYRSingleton<KYRAutoTest>::GetInstance()->StartNormalTimer(KYRAutoTest::kRestartTimer, 1, TIMER_MILLISECONDS,
                                                                   LOOP_ONCE);
        if (expired->try_acquire_for(tests::kGenerous)) {
            ++expiries;
        }
    }
    return expiries;
}

std::size_t countOf(const std::vector<std::string>& texts, const std::string& wanted)
{
    return static_cast<std::size_t>(std::ranges::count(texts, wanted));
}

TEST(Storm, EveryRequestIsAnsweredWhileEverythingComesAtOnce)
{
    static Service& service = *new Service;
    tests::BusClient hmi(service.bus.address());
    service.station.sendCommand(0x0F, 0x00, {0x01});
    service.station.sendCommand(0x06, 0x0B, {0x01});
    service.station.clear();
    std::atomic<int> answers = 0;
    std::atomic<int> expiries = 0;

    {
        std::vector<std::jthread> threads;
        threads.emplace_back([] { floodFromStation(service); });
        threads.emplace_back([&answers] { floodFromBus(service, "1", answers); });
        threads.emplace_back([&answers] { floodFromBus(service, "2", answers); });
        threads.emplace_back([] { floodFromHeadUnit(service); });
        threads.emplace_back([] { changeState(service); });
        threads.emplace_back([&expiries] { expiries = runTimers(service); });
    }

    EXPECT_EQ(answers, 2 * 3 * kCallsPerClient);
    EXPECT_EQ(expiries, kExpiries);
    // A call is answered before its frame is sent, and calls are served in their order.
    EXPECT_EQ(hmi.callEngineering("auto_test_set_track_index", "(byte 9, byte 9)"), "()");
    const auto replies = service.station.replies();
    EXPECT_THAT(replies, Each(testing::Not(StartsWith("no frame"))));
    EXPECT_EQ(countOf(replies, "8F FF [01]"), static_cast<std::size_t>(kCommands));
    EXPECT_EQ(countOf(replies, "8E 7F [01]"), static_cast<std::size_t>(kCallsPerClient));
    EXPECT_EQ(countOf(replies, "8E 7F [02]"), static_cast<std::size_t>(kCallsPerClient));
    EXPECT_EQ(countOf(replies, "86 13 [01]"), static_cast<std::size_t>(2 * kEvents / 20));

    // What the storm has left works.
    service.station.clear();
    service.station.sendCommand(0x0F, 0xFF);
    EXPECT_THAT(service.station.replies(), testing::ElementsAre("8F FF [01]"));
    EXPECT_THAT(hmi.waitForSignals(1), testing::Not(IsEmpty()));
}

}  // namespace
