// The platform's interfaces over daemons that answer, answer late or wrongly, go away and come back.

#include <KYRAudio.h>

#include "platform/linux/UnitSetup.h"
#include "tests/support/BusClient.h"

namespace unit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using tests::kGenerous;
using tests::ScriptedService;

constexpr const char* kWifiUnit = "/org/freedesktop/systemd1/unit/car_2dwifi_2eservice";
constexpr const char* kUnitInterface = "org.freedesktop.systemd1.Unit";

/// Hears of the modules that come up.
class Modules : public IKYRAppListener, public Heard
{
public:
    void OnModuleStatusChanged(AppBootInfo& info) override { add(std::to_string(info.module)); }
};

class UnitTest : public UnitSetup
{
protected:
    ScriptedService& logind() { return *(logind_ = service("org.freedesktop.login1")); }
    ScriptedService& systemd() { return *(systemd_ = service("org.freedesktop.systemd1")); }

    std::unique_ptr<ScriptedService> logind_;
    std::unique_ptr<ScriptedService> systemd_;
};

TEST_F(UnitTest, InterfaceThatIsOffIsNull)
{
    for (auto& [interface, backend] : config_.backends) {
        backend = "off";
    }
    start();

    EXPECT_EQ(KYR_GetAppMgrService(), nullptr);
    EXPECT_EQ(KYR_GetSystemPowerProxy(), nullptr);
    EXPECT_EQ(KYR_GetSystemInfoProxy(), nullptr);
    EXPECT_EQ(GetLibConfigs(), nullptr);
    EXPECT_EQ(KYR_GetAudioService(), nullptr);
}

TEST(StatusBoard, ReasonFromOutsideIsMadePrintable)
{
    StatusBoard board(false);
    board.add("audio", "alsa");

    board.set("audio", State::kAbsent, "no element 'M\xfcller'\n");

    EXPECT_EQ(board.all()[0].reason, "no element 'M\uFFFDller'␊");
}

TEST_F(UnitTest, AbsentDaemonLeavesTheInterfaceThereAndIsTold)
{
    start();

    EXPECT_EQ(reasonOnce("power", State::kAbsent), "the backend has not answered yet");
    KYRPower* const power = KYR_GetSystemPowerProxy();
    ASSERT_NE(power, nullptr);
    EXPECT_EQ(power->GetPowerState(), 3);
    EXPECT_EQ(power->GetCurScreenLightType(), 2);
    EXPECT_EQ(power->GetPowerStatus(), KYRPower::POWER_STATUS_ON);
    power->RestartSystem();  // reported, and nothing else
}

TEST_F(UnitTest, DaemonThatComesGoesAndComesBackIsFollowed)
{
    start();
    logind();
    EXPECT_EQ(reasonOnce("power", State::kUp), "");

    logind_.reset();
    EXPECT_EQ(reasonOnce("power", State::kAbsent), "org.freedesktop.login1 is not running");

    logind();
    EXPECT_EQ(reasonOnce("power", State::kUp), "");
    KYR_GetSystemPowerProxy()->RestartSystem();
    EXPECT_THAT(logind_->waitForCalls(1), ElementsAre("Reboot (false,)"));
}

TEST_F(UnitTest, BusThatIsGoneIsTold)
{
    logind();
    start();
    EXPECT_EQ(reasonOnce("power", State::kUp), "");

    bus_.kill();

    EXPECT_EQ(reasonOnce("power", State::kAbsent), "the bus has closed the connection");
}

TEST_F(UnitTest, ShutDownSwitchesTheUnitOffAndOtherPowerStatesAreRefused)
{
    logind();
    start();
    reasonOnce("power", State::kUp);

    KYR_GetSystemPowerProxy()->SetPowerState(static_cast<KYRPower::PowerState>(2));
    KYR_GetSystemPowerProxy()->SetPowerState(KYRPower::PS_SHUT_DOWN);

    EXPECT_THAT(logind_->waitForCalls(1), ElementsAre("PowerOff (false,)"));
}

TEST_F(UnitTest, DaemonThatNeverAnswersHoldsNobodyUp)
{
    logind().answer("Reboot", "");
    start();
    reasonOnce("power", State::kUp);

    const auto begun = std::chrono::steady_clock::now();
    KYR_GetSystemPowerProxy()->RestartSystem();
    EXPECT_EQ(KYR_GetSystemPowerProxy()->GetPowerState(), 3);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(50));

    EXPECT_THAT(logind_->waitForCalls(1), ElementsAre("Reboot (false,)"));
}

TEST_F(UnitTest, StandbyIsAUnitOfSystemd)
{
    systemd();
    start();
    reasonOnce("app-manager", State::kUp);
    KYRPower* const power = KYR_GetSystemPowerProxy();

    power->SwitchPowerMode(0);
    EXPECT_EQ(power->GetPowerStatus(), KYRPower::POWER_STATUS_OFF);
    power->SwitchPowerMode(1);
    EXPECT_EQ(power->GetPowerStatus(), KYRPower::POWER_STATUS_ON);

    EXPECT_THAT(systemd_->waitForCalls(3), ElementsAre("Subscribe ()", "StartUnit ('standby.service', 'replace')",
                                                       "StopUnit ('standby.service', 'replace')"));
}

TEST_F(UnitTest, ModulesComeUpOnceTheServiceIsReadyAndTheirUnitIsActive)
{
    systemd().setProperty(kWifiUnit, kUnitInterface, "ActiveState", "'inactive'");
    Modules modules;
    static std::atomic<int> started;
    started = 0;
    KYRAppMgrService* const manager = start().appManager ? KYR_GetAppMgrService() : nullptr;
    ASSERT_NE(manager, nullptr);
    EXPECT_EQ(manager->InitInstance(), 1);
    manager->AddListener(&modules);
    manager->SetStartServiceAction(MODULE_WIFI, [](ServiceModule module) { return started += module; });
    reasonOnce("app-manager", State::kUp);

    unit_->appManager->serviceStarted();
    EXPECT_EQ(manager->RequestStartModuleProcess(2, MODULE_ENGINEERING), 0);
    manager->NotifyModuleReady(MODULE_ENGINEERING);
    unit_->appManager->serviceStarted();
    EXPECT_THAT(modules.waitFor(1), ElementsAre("9"));

    EXPECT_EQ(manager->RequestStartModuleProcess(1, MODULE_ENGINEERING), 1);
    EXPECT_THAT(systemd_->waitForCalls(2), ElementsAre("Subscribe ()", "StartUnit ('car-wifi.service', 'replace')"));
    systemd_->setProperty(kWifiUnit, kUnitInterface, "ActiveState", "'activating'");
    systemd_->setProperty(kWifiUnit, kUnitInterface, "ActiveState", "'active'");
    systemd_->setProperty(kWifiUnit, kUnitInterface, "ActiveState", "'active'");
    EXPECT_THAT(modules.waitFor(2), ElementsAre("9", "17"));
    EXPECT_EQ(started, int{MODULE_WIFI});
    manager->RemoveListener(&modules);
}

TEST_F(UnitTest, WithoutSystemdNoStartIsAccepted)
{
    start();

    EXPECT_EQ(KYR_GetAppMgrService()->RequestStartModuleProcess(1, MODULE_ENGINEERING), 0);
}

TEST_F(UnitTest, VersionsComeFromTheConfigurationAndFromHostnamed)
{
    ScriptedService hostnamed(bus_.address(), "org.freedesktop.hostname1");
    hostnamed.setProperty("/org/freedesktop/hostname1", "org.freedesktop.hostname1", "KernelRelease", "'6.1.0-test'");
    start();
    EXPECT_EQ(reasonOnce("system-info", State::kUp), "");

    SystemInfo::VersionInfo info;
    EXPECT_EQ(KYR_GetSystemInfoProxy()->GetVersionInfo(info), 1);
    EXPECT_EQ(info.strField[0], "6.1.0-test");
    EXPECT_EQ(info.strField[1], "7");
    EXPECT_NE(info.strField[2], "");
    EXPECT_EQ(info.strField[3], "");
}

TEST_F(UnitTest, HostnamedThatComesLaterIsAsked)
{
    start();
    EXPECT_THAT(reasonOnce("system-info", State::kAbsent), testing::Ne("it did not happen"));

    ScriptedService hostnamed(bus_.address(), "org.freedesktop.hostname1");

    EXPECT_EQ(reasonOnce("system-info", State::kUp), "");
}

TEST_F(UnitTest, WrongAndRefusedVersionsLeaveTheFieldEmptyAndAreTold)
{
    ScriptedService hostnamed(bus_.address(), "org.freedesktop.hostname1");
    hostnamed.answer("GetAll", "(@a{sv} {'KernelRelease': <7>},)");
    start();
    EXPECT_EQ(reasonOnce("system-info", State::kUp), "");
    hostnamed.answer("GetAll", "!org.freedesktop.DBus.Error.AccessDenied");

    SystemInfo::VersionInfo info;
    KYR_GetSystemInfoProxy()->GetVersionInfo(info);

    EXPECT_EQ(info.strField[0], "");
    EXPECT_EQ(reasonOnce("system-info", State::kAbsent), "org.freedesktop.hostname1: as the test wants it");
}

TEST_F(UnitTest, ConfigurationAnswersWhatTheFileSays)
{
    start();
    std::string text = "unchanged";

    EXPECT_EQ(GetLibConfigs()->GetBool("/engineering/open_debug"), 1);
    EXPECT_EQ(GetLibConfigs()->GetBool("/project/project_name"), 0);
    EXPECT_EQ(GetLibConfigs()->GetText("/engineering/open_debug", text), 0);
    EXPECT_EQ(text, "unchanged");
    EXPECT_EQ(GetLibConfigs()->GetText("/project/project_name", text), 1);
    EXPECT_EQ(text, "board");
}

TEST_F(UnitTest, StatesCanBeReadOnTheSessionBus)
{
    logind();
    start();
    reasonOnce("power", State::kUp);
    tests::BusClient client(bus_.address());
    ASSERT_TRUE(client.waitForOwner("com.zent.linux.unit", true));

    host::GlibError error;
    const host::GlibPtr<GVariant> reply(g_dbus_connection_call_sync(
        client.connection(), "com.zent.linux.unit", "/com/zent/linux/unit", "com.zent.linux.unit", "GetStatus", nullptr,
        G_VARIANT_TYPE("(a(sssss))"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, error.out()));

    ASSERT_TRUE(reply) << error.message();
    const host::GlibPtr<char> text(g_variant_print(reply.get(), FALSE));
    EXPECT_THAT(text.get(), HasSubstr("('power', 'logind', 'up', '', '20"));
    EXPECT_THAT(text.get(), HasSubstr("('audio', 'off', 'off', '', '20"));
}

}  // namespace
}  // namespace unit
