// The access point over a NetworkManager that answers, refuses, goes away and comes back.

#include <KYRWifi.h>

#include "platform/linux/UnitSetup.h"

namespace unit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using tests::ScriptedService;

constexpr const char* kDevice = "/org/freedesktop/NetworkManager/Devices/3";
constexpr const char* kDeviceInterface = "org.freedesktop.NetworkManager.Device";
constexpr const char* kActivePath = "/org/freedesktop/NetworkManager/ActiveConnection/2";
constexpr const char* kActiveInterface = "org.freedesktop.NetworkManager.Connection.Active";
constexpr const char* kAsked =
    "ActivateConnection ('/org/freedesktop/NetworkManager/Settings/1', '/org/freedesktop/NetworkManager/Devices/3', "
    "'/')";

const std::string kDeviceOnly =
    "'/org/freedesktop/NetworkManager/Devices/3': {'org.freedesktop.NetworkManager.Device': {'Interface': <'wlan7'>, "
    "'State': <uint32 30>}}";
const std::string kProfile =
    "'/org/freedesktop/NetworkManager/Settings/1': {'org.freedesktop.NetworkManager.Settings.Connection': {'Unsaved': "
    "<false>}}";

/// A profile's settings; its SSID is "Car".
std::string settings(const std::string& id, const std::string& uuid, const std::string& mode = "ap")
{
    return "({'connection': {'id': <'" + id + "'>, 'uuid': <'" + uuid + "'>}, '802-11-wireless': {'mode': <'" + mode +
           "'>, 'ssid': <@ay [0x43, 0x61, 0x72]>}},)";
}

class Modules : public IKYRAppListener, public Heard
{
public:
    void OnModuleStatusChanged(AppBootInfo& info) override { add(std::to_string(info.module)); }
};

class WifiTest : public UnitSetup
{
protected:
    WifiTest()
    {
        config_.wifi = {"wlan7", "", "", "car-ap", false};
        config_.appManager = {};
    }

    /// Starts NetworkManager with a device and a profile.
    ScriptedService& startManager(const std::string& objects = "({@o " + kDeviceOnly + ", " + kProfile + "},)",
                                  const std::string& answer = settings("car-ap", "1-2"))
    {
        manager_ = service("org.freedesktop.NetworkManager",
                           {{"GetManagedObjects", objects},
                            {"GetSettings", answer},
                            {"ActivateConnection", std::string("(@o '") + kActivePath + "',)"}});
        return *manager_;
    }

    void becomeActive()
    {
        manager_->emit("/org/freedesktop", "org.freedesktop.DBus.ObjectManager", "InterfacesAdded",
                       std::string("(@o '") + kActivePath + "', {'" + kActiveInterface +
                           "': {'Connection': <@o '/org/freedesktop/NetworkManager/Settings/1'>, 'State': <uint32 "
                           "1>}})");
        manager_->setProperty(kActivePath, kActiveInterface, "State", "uint32 2");
    }

    std::string absentBecause(const std::string& reason)
    {
        return once([this] { return reasonOnce("wifi", State::kAbsent); }, reason);
    }

    std::unique_ptr<ScriptedService> manager_;
};

TEST_F(WifiTest, TextIsTheNameOfTheProfilesAccessPoint)
{
    startManager();
    start();

    EXPECT_EQ(reasonOnce("wifi", State::kUp), "");
    EXPECT_EQ(KYR_GetWifiService()->InitInstance(), 1);
    EXPECT_EQ(KYR_GetWifiService()->GetText(), "Car");
    EXPECT_THAT(manager_->waitForCalls(2), ElementsAre("GetManagedObjects ()", "GetSettings ()"));
}

TEST_F(WifiTest, RequestOfTheStationActivatesTheAccessPointAndThenTheModuleIsUp)
{
    startManager();
    Modules modules;
    start();
    KYR_GetAppMgrService()->AddListener(&modules);
    KYR_GetAppMgrService()->NotifyModuleReady(MODULE_ENGINEERING);
    unit_->appManager->serviceStarted();
    reasonOnce("wifi", State::kUp);

    EXPECT_EQ(KYR_GetAppMgrService()->RequestStartModuleProcess(1, MODULE_ENGINEERING), 1);

    EXPECT_EQ(manager_->waitForCalls(3).back(), kAsked);
    EXPECT_EQ(absentBecause("the access point is not active yet"), "the access point is not active yet");
    becomeActive();
    EXPECT_EQ(reasonOnce("wifi", State::kUp), "");
    EXPECT_THAT(modules.waitFor(1), ElementsAre("17"));
    KYR_GetAppMgrService()->RemoveListener(&modules);
}

TEST_F(WifiTest, AccessPointThatIsActiveBeforeTheServiceIsToldWhenItStarts)
{
    startManager();
    Modules modules;
    start();
    reasonOnce("wifi", State::kUp);
    becomeActive();
    KYR_GetAppMgrService()->AddListener(&modules);
    KYR_GetAppMgrService()->NotifyModuleReady(MODULE_ENGINEERING);

    unit_->appManager->serviceStarted();

    EXPECT_THAT(modules.waitFor(1), ElementsAre("17"));
    KYR_GetAppMgrService()->RemoveListener(&modules);
}

TEST_F(WifiTest, AccessPointOfTheStartIsActivatedAgainWhenItEnds)
{
    config_.wifi.activate = true;
    startManager();
    start();
    EXPECT_EQ(manager_->waitForCalls(3).back(), kAsked);
    becomeActive();
    reasonOnce("wifi", State::kUp);

    manager_->setProperty(kActivePath, kActiveInterface, "State", "uint32 4");

    EXPECT_EQ(manager_->waitForCalls(4).back(), kAsked);
}

TEST_F(WifiTest, ActivationThatIsUnderWayIsAwaited)
{
    config_.wifi.activate = true;
    startManager("({@o " + kDeviceOnly + ", " + kProfile + ", '" + kActivePath + "': {'" + kActiveInterface +
                 "': {'Connection': <@o '/org/freedesktop/NetworkManager/Settings/1'>, 'State': <uint32 1>}}},)");
    start();
    EXPECT_EQ(absentBecause("the access point is not active yet"), "the access point is not active yet");

    manager_->setProperty(kActivePath, kActiveInterface, "State", "uint32 2");

    EXPECT_EQ(reasonOnce("wifi", State::kUp), "");
    EXPECT_THAT(manager_->waitForCalls(2), ElementsAre("GetManagedObjects ()", "GetSettings ()"));
}

TEST_F(WifiTest, ActivationThatIsRefusedIsTold)
{
    config_.wifi.activate = true;
    startManager().answer("ActivateConnection", "!org.freedesktop.NetworkManager.PermissionDenied");
    start();

    const std::string reason = "org.freedesktop.NetworkManager: as the test wants it";
    EXPECT_EQ(absentBecause(reason), reason);
}

TEST_F(WifiTest, ProfileOfAnSsidIsMadeInMemory)
{
    config_.wifi = {"wlan7", "Car", "secret-12", "", false};
    startManager("({@o " + kDeviceOnly + "},)");
    manager_->answer("AddConnectionUnsaved", "(@o '/org/freedesktop/NetworkManager/Settings/1',)");
    start();

    const std::string made = manager_->waitForCalls(2).back();
    EXPECT_THAT(made, StartsWith("AddConnectionUnsaved ({'connection': {'id': <'engineering-unit'>, 'uuid': <'"));
    EXPECT_THAT(made, HasSubstr("'type': <'802-11-wireless'>, 'interface-name': <'wlan7'>, 'autoconnect': <false>}, "
                                "'802-11-wireless': {'mode': <'ap'>, 'ssid': <[byte 0x43, 0x61, 0x72]>}, "
                                "'802-11-wireless-security': {'key-mgmt': <'wpa-psk'>, 'psk': <'secret-12'>}, "
                                "'ipv4': {'method': <'shared'>}, 'ipv6': {'method': <'ignore'>}},)"));
    const std::string key = "'uuid': <'";
    const std::string uuid = made.substr(made.find(key) + key.size(), 36);
    manager_->answer("GetSettings", settings("engineering-unit", uuid));
    manager_->emit("/org/freedesktop", "org.freedesktop.DBus.ObjectManager", "InterfacesAdded",
                   "(@o '/org/freedesktop/NetworkManager/Settings/1', "
                   "{'org.freedesktop.NetworkManager.Settings.Connection': @a{sv} {}})");

    EXPECT_EQ(reasonOnce("wifi", State::kUp), "");
    EXPECT_EQ(KYR_GetWifiService()->GetText(), "Car");
    EXPECT_EQ(manager_->waitForCalls(3).back(), "GetSettings ()");
}

TEST_F(WifiTest, OpenAccessPointHasNoSecurity)
{
    config_.wifi = {"wlan7", "Car", "", "", false};
    startManager("({@o " + kDeviceOnly + "},)");
    start();

    EXPECT_THAT(manager_->waitForCalls(2).back(), testing::Not(HasSubstr("security")));
}

TEST_F(WifiTest, ProfileThatCannotBeMadeIsTold)
{
    config_.wifi = {"wlan7", "Car", "", "", false};
    startManager("({@o " + kDeviceOnly + "},)");
    manager_->answer("AddConnectionUnsaved", "!org.freedesktop.NetworkManager.Settings.PermissionDenied");
    start();

    const std::string reason = "org.freedesktop.NetworkManager: as the test wants it";
    EXPECT_EQ(absentBecause(reason), reason);
}

TEST_F(WifiTest, ProfileThatIsRemovedIsMissedAndFoundAgain)
{
    const std::string missing = "expected a profile of NetworkManager with the name 'car-ap' and the mode ap, got none";
    startManager();
    start();
    reasonOnce("wifi", State::kUp);

    manager_->emit("/org/freedesktop", "org.freedesktop.DBus.ObjectManager", "InterfacesRemoved",
                   "(@o '/org/freedesktop/NetworkManager/Settings/1', "
                   "['org.freedesktop.NetworkManager.Settings.Connection'])");
    EXPECT_EQ(absentBecause(missing), missing);
    manager_->emit("/org/freedesktop", "org.freedesktop.DBus.ObjectManager", "InterfacesAdded",
                   "(@o '/org/freedesktop/NetworkManager/Settings/1', "
                   "{'org.freedesktop.NetworkManager.Settings.Connection': @a{sv} {}})");

    EXPECT_EQ(reasonOnce("wifi", State::kUp), "");
}

struct AbsentCase {
    const char* name;
    std::string objects;
    std::string settings;
    const char* reason;
};

void PrintTo(const AbsentCase& row, std::ostream* out)
{
    *out << row.name;
}

class WifiAbsentTest : public WifiTest, public testing::WithParamInterface<AbsentCase>
{
};

TEST_P(WifiAbsentTest, SaysWhatIsMissingAndWhatHelps)
{
    config_.wifi.activate = true;
    startManager(GetParam().objects, GetParam().settings);
    start();

    EXPECT_EQ(absentBecause(GetParam().reason), GetParam().reason);
    EXPECT_EQ(KYR_GetWifiService()->GetText(), "");
}

std::string objectsWithState(const char* state)
{
    std::string device = kDeviceOnly;
    return "({@o " + device.replace(device.find("uint32 30"), 9, state) + ", " + kProfile + "},)";
}

constexpr const char* kNoProfile =
    "expected a profile of NetworkManager with the name 'car-ap' and the mode ap, got none";

INSTANTIATE_TEST_SUITE_P(
    Wifi, WifiAbsentTest,
    testing::Values(
        AbsentCase{"NoDevice", "({@o " + kProfile + "},)", settings("car-ap", ""),
                   "expected the network interface wlan7, got none"},
        AbsentCase{"DeviceWithAWrongState", objectsWithState("'none'"), settings("house", ""), kNoProfile},
        AbsentCase{"Unmanaged", objectsWithState("uint32 10"), settings("car-ap", ""),
                   "NetworkManager does not manage wlan7; run 'nmcli device set wlan7 managed yes'"},
        AbsentCase{"Unavailable", objectsWithState("uint32 20"), settings("car-ap", ""),
                   "wlan7 is unavailable; install wpasupplicant, or run 'rfkill unblock wifi'"},
        AbsentCase{"OtherProfile", objectsWithState("uint32 30"), settings("house", ""), kNoProfile},
        AbsentCase{"ProfileOfAClient", objectsWithState("uint32 30"), settings("car-ap", "", "infrastructure"),
                   kNoProfile},
        AbsentCase{"WrongAnswer", objectsWithState("uint32 30"), "(7,)", kNoProfile},
        AbsentCase{"WrongSettings", objectsWithState("uint32 30"), "({'connection': {'id': <7>}},)", kNoProfile},
        AbsentCase{"Refused", objectsWithState("uint32 30"), "!org.freedesktop.DBus.Error.AccessDenied", kNoProfile}),
    [](const auto& row) { return row.param.name; });

TEST_F(WifiTest, DeviceThatBecomesManagedIsUsed)
{
    startManager(objectsWithState("uint32 10"));
    start();
    const std::string reason = "NetworkManager does not manage wlan7; run 'nmcli device set wlan7 managed yes'";
    EXPECT_EQ(absentBecause(reason), reason);

    manager_->setProperty(kDevice, kDeviceInterface, "State", "uint32 30");

    EXPECT_EQ(reasonOnce("wifi", State::kUp), "");
}

TEST_F(WifiTest, ManagerThatGoesAndComesBackIsFollowed)
{
    config_.wifi.activate = true;
    startManager();
    start();
    manager_->waitForCalls(3);
    becomeActive();
    reasonOnce("wifi", State::kUp);

    manager_.reset();
    EXPECT_EQ(reasonOnce("wifi", State::kAbsent),
              "org.freedesktop.NetworkManager is not running; install network-manager");
    EXPECT_EQ(KYR_GetWifiService()->GetText(), "Car");
    startManager();

    EXPECT_EQ(manager_->waitForCalls(3).back(), kAsked);
}

TEST_F(WifiTest, WithoutNetworkManagerARequestIsRemembered)
{
    start();
    EXPECT_EQ(KYR_GetAppMgrService()->RequestStartModuleProcess(1, MODULE_ENGINEERING), 1);
    EXPECT_EQ(KYR_GetWifiService()->GetText(), "");

    startManager();

    EXPECT_EQ(manager_->waitForCalls(3).back(), kAsked);
}

TEST_F(WifiTest, ManagerThatNeverAnswersHoldsNobodyUp)
{
    config_.wifi.activate = true;
    startManager().answer("GetSettings", "");
    start();
    manager_->waitForCalls(2);

    EXPECT_EQ(KYR_GetWifiService()->GetText(), "");
    EXPECT_EQ(KYR_GetAppMgrService()->RequestStartModuleProcess(1, MODULE_ENGINEERING), 1);
}

TEST_F(WifiTest, CheckMakesAndActivatesNothing)
{
    config_.wifi = {"wlan7", "Car", "", "", true};
    startManager();
    unit_.emplace(config_, Unit::Role::kCheck);

    EXPECT_EQ(reasonOnce("wifi", State::kUp), "");
    EXPECT_THAT(manager_->waitForCalls(2), ElementsAre("GetManagedObjects ()", "GetSettings ()"));
}

}  // namespace
}  // namespace unit
