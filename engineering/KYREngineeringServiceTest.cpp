// The three entry points, the bring-up and the start actions, on the simulated head unit, while another process has the
// name on the bus.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <thread>

#include "KYRAudio.h"
#include "KYRDeviceApp.h"
#include "KYRLocation.h"
#include "KYRMediaPlayer.h"
#include "KYRServiceFw.h"
#include "KYRTuner.h"
#include "KYRWifi.h"
#include "engineering/KYREngineeringService_IPC.h"
#include "engineering/KYREngineeringService_Server.h"
#include "engineering/UARTMgr/KYRUARTManage.h"
#include "engineering/base/KYRSingleton.h"
#include "platform/bench/HeadUnit.h"
#include "platform/runtime/Root.h"
#include "tests/support/BusClient.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/PrivateBus.h"
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
        setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1);
        auto other = std::make_unique<tests::BusClient>(bus.address());
        EXPECT_TRUE(other->own(kBusName));
        runtime::setRoot(root.path().string());
        runtime::makeHeadUnitDirectories(root.path().string());
        unit.install();
        KYRServiceFw_Args args;
        KYR_ServiceFw_Init(args);
        EXPECT_TRUE(log.waitFor("INFO engineering: nameLostCB"));
        firstStart = log.lines();
        KYR_ServiceFw_Deinit();
        other.reset();
        EXPECT_TRUE(client.waitForOwner(kBusName, false));
    }

    static constexpr const char* kBusName = "com.zent.linux.engineering";

    LogRecorder log;
    tests::PrivateBus bus;
    tests::BusClient client{bus.address()};
    tests::TempDir root;
    bench::HeadUnit unit;
    RecordedWire station;
    std::vector<std::string> firstStart;  // log lines
};

class EntryPointTest : public testing::Test
{
public:
    EntryPointTest()
    {
        host();
        log.clear();
    }
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

TEST_F(EntryPointTest, TheFirstStartLogsItsStepsInTheirOrder)
{
    // The D-Bus thread logs these, at any moment.
    const std::vector<std::string> onTheBus = {
        "INFO engineering: bus_acquired_cb call.",
        "INFO engineering: nameLostCB call, Acquired bus name: com.zent.linux.engineering.",
    };
    std::vector<std::string> steps = host().firstStart;
    EXPECT_THAT(steps, testing::IsSupersetOf(onTheBus));
    std::erase_if(steps, [&](const std::string& line) { return std::ranges::find(onTheBus, line) != onTheBus.end(); });

    EXPECT_THAT(steps,
                ElementsAre("INFO ModuleProcessInitBegin---- ", "DEBUG Start AppMgr Service Success.",
                            "INFO KYREngineeringService_IPC()", "INFO Init()", "INFO InitDbusConnect()",
                            "INFO [rkb] UARTManage::UARTManage() created!!!", "INFO Init()",
                            "INFO UARTManage() m_bIsCPTest = 0", "DEBUG KYRAutoTest(), Created!",
                            "INFO InitPowerService m_PowerService->AddListener()",
                            "INFO InitAudioService(), AddListener", "INFO InitTunerService(), AddListener",
                            "INFO EngineeringServiceReady---- m_bDbusInit = 1, m_bUartMgrInit = 1,m_AppMgrInit = 1",
                            "INFO InitInstance()", "INFO - End"));
}

TEST_F(EntryPointTest, AServiceThatLostItsNameRefusesCalls)
{
    // The process shares its connection with the bridge.
    GDBusConnection* const connection = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);

    EXPECT_EQ(host().client.callWithDescriptors(g_dbus_connection_get_unique_name(connection), 0),
              "org.freedesktop.DBus.Error.ServiceUnknown");

    EXPECT_EQ(g_dbus_connection_get_exit_on_close(connection), FALSE);
    g_object_unref(connection);
}

TEST_F(EntryPointTest, TheModuleHasBegunBeforeTheLogSaysSo)
{
    std::vector<std::string> linesAtBegin = {"none"};
    const int observer = host().unit.calls().additions().add([&](const bench::Call& call) {
        if (call.op == "NotifyModuleInitBegin")
            linesAtBegin = log.lines();
    });

    init();

    host().unit.calls().additions().remove(observer);
    EXPECT_THAT(linesAtBegin, IsEmpty());
}

TEST_F(EntryPointTest, ExecLogsItsNameAndStays)
{
    std::thread(KYR_ServiceFw_Exec).detach();

    EXPECT_TRUE(log.waitFor("INFO KYR_ServiceFw_Exec()"));
}

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

TEST_F(EntryPointTest, WithoutItsNameOnTheBusTheStationIsAnswered)
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

    KYREngineeringService_Server::AsyncStartDBus(server);
    EXPECT_EQ(server->InitInstance(), 1);
    EXPECT_EQ(server->ExitInstance(), 1);

    EXPECT_THAT(log.lines(), ElementsAre("DEBUG Start AppMgr Service Success.", "INFO Init()", "INFO InitDbusConnect()",
                                         "INFO InitInstance()", "INFO ExitInstance()"));
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

TEST_F(EntryPointTest, AStartActionStartsItsOwnServiceUnlessItIsStarted)
{
    const std::pair<ServiceModule, std::atomic<int>*> services[] = {
        {MODULE_AUDIO, &KYR_GetAudioService()->m_nStarted},
        {MODULE_TUNER, &KYR_GetTunerService()->m_nStarted},
        {MODULE_MEDIA_PLAYER, &KYR_GetMediaPlayer()->m_nStarted},
        {MODULE_LOCATION, &KYR_GetLocationService()->m_nStarted},
        {MODULE_WIFI, &KYR_GetWifiService()->m_nStarted},
        {MODULE_DEVICE_APP, &KYR_GetDeviceAppProxy()->m_nStarted},
    };
    const auto setAll = [&](int value) {
        for (const auto& service : services)
            *service.second = value;
    };
    for (const auto& [module, started] : services) {
        setAll(0);
        EXPECT_EQ(KYREngineeringService_Server::StartServiceAction(module), 1);
        int sum = 0;
        for (const auto& service : services)
            sum += *service.second;
        EXPECT_EQ(*started, 1) << module;
        EXPECT_EQ(sum, 1) << module;

        *started = 7;
        KYREngineeringService_Server::StartServiceAction(module);
        EXPECT_EQ(*started, 7) << module;
    }
    setAll(0);
}

TEST(MediaPlayerInterface, APlayerThatKeepsTheDefaultStartIsStarted)
{
    KYRMediaPlayer player;

    EXPECT_EQ(player.InitInstance(), 1);
}

}  // namespace
