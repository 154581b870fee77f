#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <thread>

#include "KYRServiceFw.h"
#include "protocol/Frame.h"
#include "tests/otherplatform/OtherPlatform.h"
#include "tests/support/WireVectors.h"

// What the service exports for other modules, as these declare it.
extern std::atomic<int> m_bIsCPTest;
extern std::atomic<unsigned char> m_iACKStatus;

namespace {

using otherplatform::ask;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

/// @returns whether a thread, not necessarily this one, holds the mutex.
bool isHeld(KYRMutex& mutex)
{
    // The mutex is recursive, so another thread tries.
    return std::async(std::launch::async,
                      [&mutex] {
                          auto* const inner = reinterpret_cast<pthread_mutex_t*>(&mutex);  // the only member
                          const bool free = pthread_mutex_trylock(inner) == 0;
                          if (free)
                              pthread_mutex_unlock(inner);
                          return !free;
                      })
        .get();
}

/// Writes down the calls that it gets.
class AppManager : public KYRAppMgrService
{
public:
    int InitInstance() override
    {
        ask(isHeld(m_csService) ? "start of the application manager" : "start of the application manager, unlocked");
        return 1;
    }
    void NotifyModuleInitBegin(ServiceModule module) override { ask("begun " + std::to_string(module)); }
    void NotifyModuleReady(ServiceModule module) override { ask("ready " + std::to_string(module)); }
    void SetStartServiceAction(ServiceModule module, StartAction toStart) override
    {
        ask("action " + std::to_string(module));
        action = toStart;
    }
    int RequestStartModuleProcess(int, int) override { return 0; }
    void OnListenerAdded(IKYRAppListener*) override { ask("application-manager listener"); }

    StartAction action = nullptr;
};

/// The first start of the process: its effects on the platform last.
struct FirstStart {
    FirstStart()
    {
        // No bus, and a root where nothing can be written.
        m_bIsCPTest = 5;
        setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
        otherplatform::setRoot("/nonexistent");
        otherplatform::setAppManager(&appManager);
        otherplatform::takeAsked();
        KYRServiceFw_Args args;
        EXPECT_EQ(KYR_ServiceFw_Init(args), 1);
        asked = otherplatform::takeAsked();
        KYR_ServiceFw_Deinit();
        otherplatform::setAppManager(nullptr);
    }

    AppManager appManager;
    std::vector<std::string> asked;
};

FirstStart& firstStart()
{
    static FirstStart* const instance = new FirstStart;
    return *instance;
}

class OtherPlatformTest : public testing::Test
{
public:
    OtherPlatformTest()
    {
        // Without a log every line is a line on standard output.
        testing::internal::CaptureStdout();
        firstStart();
        KYRServiceFw_Args args;
        EXPECT_EQ(KYR_ServiceFw_Init(args), 1);
        otherplatform::takeAsked();
    }
    ~OtherPlatformTest() override
    {
        KYR_ServiceFw_Deinit();
        testing::internal::GetCapturedStdout();
    }

    static void send(std::uint8_t cmdOne, std::uint8_t cmdTwo, const std::vector<std::uint8_t>& params)
    {
        protocol::FrameBuffer frame;
        const std::size_t length = protocol::encode(frame, cmdOne, cmdTwo, params);
        otherplatform::deliver({frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(length)});
    }
};

TEST_F(OtherPlatformTest, TheStationSwitchesTheModeOn)
{
    otherplatform::deliver(wire::kModeOn);

    EXPECT_THAT(otherplatform::takeSent(), ElementsAre(wire::kModeOnReply));
}

TEST_F(OtherPlatformTest, TheFirstStartAsksThePlatformForTheseInThisOrder)
{
    EXPECT_THAT(
        firstStart().asked,
        ElementsAre("log engineering", "begun 14", "start of the application manager", "thread with a stack of 51200",
                    "detach the thread", "start the thread", "UART client of type 0, number 11, name '', device ''",
                    "UART receiver", "Bluetooth listener", "application-manager listener", "source listener",
                    "command 1 mkdir /nonexistent/perm_data/data/engineering/", "ready 14", "action 5", "action 9",
                    "action 2", "action 8", "action 3", "action 1", "action 17", "action 15", "action 7", "action 20"));
}

TEST_F(OtherPlatformTest, AnotherStartBuildsOnlyTheServerAgain)
{
    KYR_ServiceFw_Deinit();
    otherplatform::setAppManager(&firstStart().appManager);

    KYRServiceFw_Args args;
    KYR_ServiceFw_Init(args);

    otherplatform::setAppManager(nullptr);
    EXPECT_THAT(otherplatform::takeAsked(),
                ElementsAre("log engineering", "begun 14", "ready 14", "action 5", "action 9", "action 2", "action 8",
                            "action 3", "action 1", "action 17", "action 15", "action 7", "action 20"));
}

struct StartedModule {
    int module;
    int result;
    std::vector<std::string> asked;
};

TEST_F(OtherPlatformTest, ThreeModulesAreStartedWithoutAServiceOfTheirOwn)
{
    const StartedModule rows[] = {
        {3, 1, {"start of the source manager"}},
        {5, 3, {"start of the system proxy"}},
        {8, 1, {"start of Bluetooth"}},
    };
    for (const auto& [module, result, asked] : rows) {
        EXPECT_EQ(firstStart().appManager.action(static_cast<ServiceModule>(module)), result);
        EXPECT_EQ(otherplatform::takeAsked(), asked);
    }
    EXPECT_EQ(firstStart().appManager.action(MODULE_NONE), 1);
    for (const int module : {0, 2, 4, 6, 7, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21})
        EXPECT_EQ(firstStart().appManager.action(static_cast<ServiceModule>(module)), 0) << module;
    EXPECT_THAT(otherplatform::takeAsked(), IsEmpty());
}

TEST_F(OtherPlatformTest, TheVariablesForOtherModulesAreThere)
{
    EXPECT_EQ(m_bIsCPTest, 0);  // there is no configuration to allow the tests
    EXPECT_EQ(m_iACKStatus, 0);
}

TEST_F(OtherPlatformTest, TheServiceServesWhileTheFrameworksThreadIsInExec)
{
    std::thread(KYR_ServiceFw_Exec).detach();

    otherplatform::deliver(wire::kModeOn);

    EXPECT_THAT(otherplatform::takeSent(), ElementsAre(wire::kModeOnReply));
}

TEST_F(OtherPlatformTest, EveryCommandIsSurvivedWithEveryServiceMissing)
{
    otherplatform::deliver(wire::kModeOn);
    for (int group = 0; group <= 0x12; ++group)
        for (int command = 0; command <= 0xFF; ++command)
            for (const std::uint8_t value : {0, 1, 2, 255}) {
                if (group == 0x0F)
                    continue;
                const auto cmdOne = static_cast<std::uint8_t>(group);
                const auto cmdTwo = static_cast<std::uint8_t>(command);
                send(cmdOne, cmdTwo, {});
                send(cmdOne, cmdTwo, {value});
                send(cmdOne, cmdTwo, std::vector<std::uint8_t>(20, value));
            }
    otherplatform::takeSent();
    EXPECT_THAT(otherplatform::takeAsked(), Each(StartsWith("command 1 ")));

    otherplatform::deliver(wire::kAskMode);

    // 03+8F+FF+01 = 0192
    EXPECT_THAT(otherplatform::takeSent(),
                ElementsAre(wire::Bytes{0x2A, 0xA2, 0x00, 0x03, 0x8F, 0xFF, 0x01, 0x00, 0xFE, 0x6E}));
    EXPECT_FALSE(std::filesystem::exists("/nonexistent"));
}

}  // namespace
