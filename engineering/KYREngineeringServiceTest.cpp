// The three entry points, the bring-up and the start actions, on the simulated head unit and without a bus.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "KYRAudio.h"
#include "KYRMediaPlayer.h"
#include "KYRServiceFw.h"
#include "engineering/KYREngineeringService_IPC.h"
#include "engineering/KYREngineeringService_Server.h"
#include "engineering/UARTMgr/KYRUARTManage.h"
#include "engineering/base/KYRSingleton.h"
#include "platform/bench/HeadUnit.h"
#include "platform/runtime/Root.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/RecordedWire.h"
#include "tests/support/TempDir.h"
#include "tests/support/Text.h"
#include "tests/support/WireVectors.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

/// What the bring-up leaves in memory for good (bridge, link manager, engine) may refer to the head unit, so that both
/// last as long as the process.
struct Host {
    Host()
    {
        setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
        runtime::setRoot(root.path().string());
        runtime::makeHeadUnitDirectories(root.path().string());
        unit.install();
    }

    tests::TempDir root;
    bench::HeadUnit unit;
    RecordedWire station;
};

class EntryPointTest : public testing::Test
{
public:
    EntryPointTest() { host(); }
    ~EntryPointTest() override
    {
        KYR_ServiceFw_Deinit();
        host().unit.state().set("/app_manager/available", true);
        host().unit.events().drain();
    }

    static Host& host()
    {
        static Host* const instance = new Host;
        return *instance;
    }

    static int init()
    {
        KYRServiceFw_Args args;
        return KYR_ServiceFw_Init(args);
    }

    /// The calls that the application manager got.
    static std::vector<std::string> appManagerCalls()
    {
        std::vector<std::string> calls;
        for (const bench::Call& call : host().unit.calls().list())
            if (call.service == "app_manager")
                calls.push_back(call.op + call.args.dump());
        return calls;
    }

    static std::vector<std::string> registrations()
    {
        return {"SetStartServiceAction[5]",  "SetStartServiceAction[9]",  "SetStartServiceAction[2]",
                "SetStartServiceAction[8]",  "SetStartServiceAction[3]",  "SetStartServiceAction[1]",
                "SetStartServiceAction[17]", "SetStartServiceAction[15]", "SetStartServiceAction[7]",
                "SetStartServiceAction[20]"};
    }

    LogRecorder log;
};

TEST_F(EntryPointTest, InitReportsTheModuleAndRegistersTheStartActionsInOrder)
{
    host().unit.calls().clear();

    EXPECT_EQ(init(), 1);

    std::vector<std::string> expected = {"NotifyModuleInitBegin[14]", "NotifyModuleReady[14]"};
    for (const std::string& call : registrations())
        expected.push_back(call);
    EXPECT_EQ(appManagerCalls(), expected);
    EXPECT_THAT(log.lines(), Contains("INFO ModuleProcessInitBegin---- "));
    EXPECT_THAT(log.lines(), Contains("DEBUG Start AppMgr Service Success."));
    EXPECT_THAT(log.lines(), Contains("INFO EngineeringServiceReady---- m_bDbusInit = 1, m_bUartMgrInit = "
                                      "1,m_AppMgrInit = 1"));
    EXPECT_THAT(log.lines(), Contains("INFO InitInstance()"));
    EXPECT_THAT(log.lines(), Contains("INFO - End"));
}

TEST_F(EntryPointTest, AnApplicationManagerThatFailsGetsNoReadyReportButTheStartActions)
{
    host().unit.state().set("/app_manager/available", false);
    KYR_GetAppMgrService()->m_nStarted = 0;
    host().unit.calls().clear();

    EXPECT_EQ(init(), 1);

    std::vector<std::string> expected = {"NotifyModuleInitBegin[14]"};
    for (const std::string& call : registrations())
        expected.push_back(call);
    EXPECT_EQ(appManagerCalls(), expected);
    EXPECT_THAT(log.lines(), Contains("WARN Start AppMgr Service Fail."));
    EXPECT_THAT(log.lines(), Contains("INFO EngineeringServiceReady---- m_bDbusInit = 1, m_bUartMgrInit = "
                                      "1,m_AppMgrInit = 0"));
}

TEST_F(EntryPointTest, ASecondInitBuildsNothingAgain)
{
    init();
    KYRUARTManage* const link = KYRSingleton<KYRUARTManage>::GetInstance();
    host().unit.calls().clear();
    log.clear();

    EXPECT_EQ(init(), 1);

    EXPECT_THAT(appManagerCalls(), ElementsAre("NotifyModuleInitBegin[14]"));
    EXPECT_THAT(log.lines(), ElementsAre("INFO ModuleProcessInitBegin---- ", "INFO - End"));
    EXPECT_EQ(KYRSingleton<KYRUARTManage>::GetInstance(), link);
}

TEST_F(EntryPointTest, AnInitAfterDeinitLeavesTheBridgeAsItIs)
{
    init();
    GMainLoop* const loop = pLoop;
    KYR_ServiceFw_Deinit();
    log.clear();

    EXPECT_EQ(init(), 1);

    EXPECT_THAT(log.lines(), Contains("INFO InitDbusConnect()"));
    EXPECT_EQ(pLoop, loop);
}

TEST_F(EntryPointTest, DeinitWithoutInitAndTwoInARowAreHarmless)
{
    KYR_ServiceFw_Deinit();
    KYR_ServiceFw_Deinit();

    EXPECT_THAT(log.lines(), ElementsAre("INFO KYR_ServiceFw_Deinit()", "INFO KYR_ServiceFw_Deinit()"));
}

TEST_F(EntryPointTest, DeinitReleasesTheServerAloneAndTheStationIsStillAnswered)
{
    init();
    KYR_ServiceFw_Deinit();
    host().station.clear();

    host().station.deliver(wire::kAskMode);

    EXPECT_THAT(host().station.replies(), ElementsAre("8F FF [00]"));
}

TEST_F(EntryPointTest, WithoutABusTheStationIsAnswered)
{
    init();
    host().station.clear();

    host().station.deliver(wire::kModeOn);
    host().station.sendCommand(0x0F, 0x00, {0x00});

    EXPECT_THAT(host().station.replies(), ElementsAre("8F 00 [01]", "8F 00 [00]"));
}

TEST_F(EntryPointTest, WithoutAnApplicationManagerNothingIsReportedOrRegistered)
{
    init();
    host().unit.calls().clear();
    bench::HeadUnit{}.install();  // takes itself away again: every getter of the platform returns null

    KYRSingleton<KYREngineeringService_Server>::GetInstance()->EngineeringServiceReady();

    EXPECT_THAT(appManagerCalls(), IsEmpty());
    host().unit.install();
}

TEST_F(EntryPointTest, TheForwardersDoWhatTheyName)
{
    init();
    KYREngineeringService_Server* const server = KYRSingleton<KYREngineeringService_Server>::GetInstance();
    log.clear();

    KYREngineeringService_Server::AsyncConnectService(server);

    // Beside it the D-Bus thread may log the end of its search for a bus.
    EXPECT_THAT(log.lines(), Contains("DEBUG Start AppMgr Service Success.").Times(1));
    EXPECT_EQ(server->InitInstance(), 1);
    EXPECT_EQ(server->ExitInstance(), 1);
    EXPECT_THAT(log.lines(), Contains("INFO ExitInstance()"));
}

struct StartCase {
    int module;
    int result;
};

class StartActionTest : public EntryPointTest, public testing::WithParamInterface<StartCase>
{
};

TEST_P(StartActionTest, GivesTheResultOfItsModule)
{
    const auto [module, result] = GetParam();

    EXPECT_EQ(KYREngineeringService_Server::StartServiceAction(static_cast<ServiceModule>(module)), result);

    EXPECT_THAT(log.lines(), Contains("DEBUG StartServiceAction---- module = " + std::to_string(module)));
}

std::string startCaseName(const testing::TestParamInfo<StartCase>& info)
{
    return "Module" + std::to_string(info.param.module);
}

INSTANTIATE_TEST_SUITE_P(Started, StartActionTest,
                         testing::Values(StartCase{1, 1}, StartCase{2, 1}, StartCase{3, 1}, StartCase{5, 1},
                                         StartCase{7, 1}, StartCase{8, 1}, StartCase{9, 1}, StartCase{15, 1},
                                         StartCase{17, 1}, StartCase{20, 1}),
                         startCaseName);

INSTANTIATE_TEST_SUITE_P(NotStartedHere, StartActionTest,
                         testing::Values(StartCase{0, 0}, StartCase{4, 0}, StartCase{6, 0}, StartCase{10, 0},
                                         StartCase{11, 0}, StartCase{12, 0}, StartCase{13, 0}, StartCase{14, 0},
                                         StartCase{16, 0}, StartCase{18, 0}, StartCase{19, 0}, StartCase{21, 0},
                                         StartCase{255, 0}, StartCase{1000000, 0}),
                         startCaseName);

TEST_F(EntryPointTest, AServiceThatIsNotThereIsNotStarted)
{
    for (const char* service : {"audio", "tuner", "wifi"})
        host().unit.mergeState({{service, {{"available", false}}}});

    EXPECT_EQ(KYREngineeringService_Server::StartServiceAction(MODULE_AUDIO), 0);
    EXPECT_EQ(KYREngineeringService_Server::StartServiceAction(MODULE_TUNER), 0);
    EXPECT_EQ(KYREngineeringService_Server::StartServiceAction(MODULE_WIFI), 0);

    for (const char* service : {"audio", "tuner", "wifi"})
        host().unit.mergeState({{service, {{"available", true}}}});
}

TEST_F(EntryPointTest, AStartedServiceKeepsItsFlagAndOnlyAudiosIsMadeOne)
{
    KYR_GetAudioService()->m_nStarted = 7;
    KYR_GetMediaPlayer()->m_nStarted = 7;

    EXPECT_EQ(KYREngineeringService_Server::StartServiceAction(MODULE_AUDIO), 1);
    EXPECT_EQ(KYREngineeringService_Server::StartServiceAction(MODULE_MEDIA_PLAYER), 7);

    KYR_GetAudioService()->m_nStarted = 0;
    KYR_GetMediaPlayer()->m_nStarted = 0;
}

TEST(MediaPlayerInterface, APlayerThatKeepsTheDefaultStartIsStarted)
{
    KYRMediaPlayer player;

    EXPECT_EQ(player.InitInstance(), 1);
}

}  // namespace
