// Bluetooth over a BlueZ that answers, refuses, goes away and asks back.

#include <KYRBluetooth.h>

#include "platform/linux/UnitSetup.h"

namespace unit {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using tests::kGenerous;
using tests::ScriptedService;

constexpr const char* kAdapterPath = "/org/bluez/hci0";
constexpr const char* kPhone = "/org/bluez/hci0/dev_11_22_33_44_55_66";
constexpr const char* kPlayer = "/org/bluez/hci0/dev_11_22_33_44_55_66/player0";

const std::string kAdapterWithPhones =
    "({@o '/org/bluez/hci0': {'org.bluez.Adapter1': {'Address': <'00:1A:7D:DA:71:13'>, 'Alias': <'unit'>, "
    "'Modalias': <'usb:v1D6Bp0246d0542'>, 'Powered': <false>}}, "
    "'/org/bluez/hci0/dev_11_22_33_44_55_66': {'org.bluez.Device1': {'Address': <'11:22:33:44:55:66'>, "
    "'Alias': <'phone'>, 'Paired': <true>, 'Adapter': <@o '/org/bluez/hci0'>}, "
    "'org.bluez.MediaControl1': {'Connected': <false>}}, "
    "'/org/bluez/hci0/dev_AA': {'org.bluez.Device1': {'Paired': <false>, 'Adapter': <@o '/org/bluez/hci0'>}}, "
    "'/org/bluez/hci1/dev_BB': {'org.bluez.Device1': {'Paired': <true>, 'Adapter': <@o '/org/bluez/hci1'>}}},)";

/// Hears what the adapter tells, and accepts a pairing if it should.
class Listener : public IKYRBtComListener, public Heard
{
public:
    void OnOpenBtStatusChanged(KYRBtType::PowerStatus status) override { add("power " + std::to_string(status)); }
    void OnDeletePairStatusChanged(int status) override { add("deleted " + std::to_string(status)); }
    void OnAnswerPairRequest(const std::string& address, const std::string& name, int type,
                             KYRBtType::PairRequestState state) override
    {
        add("pair " + address + " " + name + " " + std::to_string(type) + " " + std::to_string(state));
        if (client != nullptr) {
            client->AnswerPair("", "", answer);
        }
    }

    KYRBtCom* client = nullptr;
    KYRBtType::PairRequestState answer = KYRBtType::PAIR_REQUESTED;
};

class BluetoothTest : public UnitSetup
{
protected:
    /// A BlueZ with `objects`, on which the unit's agent is registered.
    void startBluez(const std::string& objects = kAdapterWithPhones)
    {
        bluez_ = service("org.bluez");
        bluez_->answer("GetManagedObjects", objects);
        start();
        EXPECT_EQ(reasonOnce("bluetooth", State::kUp), "");
        EXPECT_THAT(bluez_->waitForCalls(3),
                    ElementsAre("GetManagedObjects ()", "RegisterAgent ('/com/zent/linux/unit/agent', 'DisplayYesNo')",
                                "RequestDefaultAgent ('/com/zent/linux/unit/agent',)"));
    }

    std::string attribute(KYRBtType::Attribute attribute)
    {
        std::string text = "none";
        client_.GetAttribute(attribute, text);
        return text;
    }

    std::unique_ptr<ScriptedService> bluez_;
    Listener listener_;
    KYRBtCom client_{&listener_};
    KYRBtMedia media_;
};

TEST_F(BluetoothTest, AddressNameAndVersionAreTheAdapters)
{
    startBluez();

    EXPECT_EQ(attribute(KYRBtType::ATTRIBUTE_LOCAL_ADDRESS), "00:1A:7D:DA:71:13");
    EXPECT_EQ(attribute(KYRBtType::ATTRIBUTE_LOCAL_NAME), "unit");
    EXPECT_EQ(attribute(KYRBtType::ATTRIBUTE_VERSION), "usb:v1D6Bp0246d0542");
    EXPECT_EQ(attribute(KYRBtType::Attribute(9)), "none");
}

TEST_F(BluetoothTest, VersionOfTheFileReplacesTheAdapters)
{
    config_.bluetooth.version = "5.2";
    startBluez();

    EXPECT_EQ(attribute(KYRBtType::ATTRIBUTE_VERSION), "5.2");
}

TEST_F(BluetoothTest, AdapterThatIsMissingIsTold)
{
    config_.bluetooth.adapter = "hci7";
    bluez_ = service("org.bluez");
    bluez_->answer("GetManagedObjects", kAdapterWithPhones);
    start();

    bluez_->waitForCalls(3);
    EXPECT_EQ(once([this] { return reasonOnce("bluetooth", State::kAbsent); },
                   std::string("expected the adapter hci7 of org.bluez, got none")),
              "expected the adapter hci7 of org.bluez, got none");
    EXPECT_EQ(attribute(KYRBtType::ATTRIBUTE_LOCAL_ADDRESS), "none");
    EXPECT_EQ(client_.DeletePairDeviceList(), 0);
}

TEST_F(BluetoothTest, BluezThatGoesTakesItsAnswersWithItAndBringsThemBack)
{
    startBluez();

    bluez_.reset();
    EXPECT_EQ(reasonOnce("bluetooth", State::kAbsent), "org.bluez is not running");
    EXPECT_EQ(attribute(KYRBtType::ATTRIBUTE_LOCAL_ADDRESS), "none");

    bluez_ = service("org.bluez", {{"GetManagedObjects", kAdapterWithPhones}});
    EXPECT_EQ(reasonOnce("bluetooth", State::kUp), "");
    EXPECT_EQ(attribute(KYRBtType::ATTRIBUTE_LOCAL_ADDRESS), "00:1A:7D:DA:71:13");
}

TEST_F(BluetoothTest, WrongAnswerIsToldAsSuch)
{
    bluez_ = service("org.bluez");
    bluez_->answer("GetManagedObjects", "(1,)");
    start();

    EXPECT_EQ(once([this] { return reasonOnce("bluetooth", State::kAbsent); },
                   std::string("org.bluez: not an object manager")),
              "org.bluez: not an object manager");
}

TEST_F(BluetoothTest, PowerThatIsSwitchedIsTold)
{
    startBluez();

    bluez_->setProperty(kAdapterPath, "org.bluez.Adapter1", "Powered", "true");
    bluez_->setProperty(kAdapterPath, "org.bluez.Adapter1", "Powered", "true");
    bluez_->setProperty(kAdapterPath, "org.bluez.Adapter1", "Powered", "false");

    EXPECT_THAT(listener_.waitFor(2), ElementsAre("power 1", "power 0"));
}

TEST_F(BluetoothTest, PairedDevicesOfTheAdapterAreRemovedAndTheEndIsTold)
{
    startBluez();

    EXPECT_EQ(client_.DeletePairDeviceList(), 1);

    EXPECT_EQ(bluez_->waitForCalls(4).back(), std::string("RemoveDevice ('") + kPhone + "',)");
    EXPECT_THAT(listener_.waitFor(1), ElementsAre("deleted 1"));
}

TEST_F(BluetoothTest, DeviceThatCannotBeRemovedIsTold)
{
    startBluez();
    bluez_->answer("RemoveDevice", "!org.bluez.Error.Failed");

    EXPECT_EQ(client_.DeletePairDeviceList(), 1);

    EXPECT_THAT(listener_.waitFor(1), ElementsAre("deleted 0"));
}

TEST_F(BluetoothTest, WithoutPairedDevicesTheEndIsToldAtOnce)
{
    startBluez("({@o '/org/bluez/hci0': {'org.bluez.Adapter1': @a{sv} {}}},)");

    EXPECT_EQ(client_.DeletePairDeviceList(), 1);

    EXPECT_THAT(listener_.waitFor(1), ElementsAre("deleted 1"));
}

TEST_F(BluetoothTest, RequestToPairIsToldAndAcceptedByTheService)
{
    listener_.client = &client_;
    startBluez();

    EXPECT_EQ(bluez_->callBack("/com/zent/linux/unit/agent", "org.bluez.Agent1", "RequestConfirmation",
                               std::string("(@o '") + kPhone + "', uint32 123456)"),
              "()");
    EXPECT_EQ(bluez_->callBack("/com/zent/linux/unit/agent", "org.bluez.Agent1", "RequestAuthorization",
                               std::string("(@o '") + kPhone + "',)"),
              "()");
    EXPECT_THAT(listener_.waitFor(2),
                ElementsAre("pair 11:22:33:44:55:66 phone 0 1", "pair 11:22:33:44:55:66 phone 0 1"));
}

TEST_F(BluetoothTest, RequestToPairThatTheServiceRefusesIsRefused)
{
    listener_.client = &client_;
    listener_.answer = static_cast<KYRBtType::PairRequestState>(0);
    startBluez();

    EXPECT_EQ(bluez_->callBack("/com/zent/linux/unit/agent", "org.bluez.Agent1", "RequestConfirmation",
                               std::string("(@o '") + kPhone + "', uint32 123456)"),
              "org.bluez.Error.Rejected");
}

TEST_F(BluetoothTest, CheckLeavesTheAgentToTheService)
{
    bluez_ = service("org.bluez");
    bluez_->answer("GetManagedObjects", kAdapterWithPhones);
    unit_.emplace(config_, Unit::Role::kCheck);
    EXPECT_EQ(reasonOnce("bluetooth", State::kUp), "");

    unit_->install();
    EXPECT_EQ(client_.DeletePairDeviceList(), 1);

    EXPECT_THAT(bluez_->waitForCalls(2),
                ElementsAre("GetManagedObjects ()", std::string("RemoveDevice ('") + kPhone + "',)"));
}

TEST_F(BluetoothTest, AnswerWithoutARequestIsIgnored)
{
    startBluez();

    client_.AnswerPair("", "", KYRBtType::PAIR_REQUESTED);

    EXPECT_EQ(client_.DeletePairDeviceList(), 1);
    EXPECT_THAT(listener_.waitFor(1), ElementsAre("deleted 1"));
}

TEST_F(BluetoothTest, MediaFollowTheConnectedDeviceAndItsPlayer)
{
    startBluez();
    EXPECT_EQ(media_.GetMediaConnectionState().nState, 0);

    bluez_->emit("/", "org.freedesktop.DBus.ObjectManager", "InterfacesAdded",
                 std::string("(@o '") + kPlayer + "', {'org.bluez.MediaPlayer1': {'Status': <'playing'>}})");
    bluez_->setProperty(kPhone, "org.bluez.MediaControl1", "Player", std::string("@o '") + kPlayer + "'");
    bluez_->setProperty(kPhone, "org.bluez.MediaControl1", "Connected", "true");
    EXPECT_EQ(once([this] { return media_.GetMusicPlayStatus(); }, KYRBtType::MUSIC_PLAYING), KYRBtType::MUSIC_PLAYING);
    EXPECT_EQ(media_.GetMediaConnectionState().nState, 1);
    EXPECT_EQ(media_.GetMediaConnectionState().strText, "phone");

    bluez_->setProperty(kPlayer, "org.bluez.MediaPlayer1", "Status", "'paused'");
    EXPECT_EQ(once([this] { return media_.GetMusicPlayStatus(); }, KYRBtType::MUSIC_PAUSED), KYRBtType::MUSIC_PAUSED);

    bluez_->emit("/", "org.freedesktop.DBus.ObjectManager", "InterfacesRemoved",
                 std::string("(@o '") + kPlayer + "', ['org.bluez.MediaPlayer1'])");
    EXPECT_EQ(once([this] { return media_.GetMusicPlayStatus(); }, KYRBtType::MusicStatus{}), KYRBtType::MusicStatus{});
    EXPECT_EQ(media_.GetMediaConnectionState().nState, 1);
}

TEST_F(BluetoothTest, CapabilitiesAreRemembered)
{
    start();

    EXPECT_EQ(client_.GetCapability(KYRBtType::CAPABILITY_9), 0);
    client_.SetCapability(KYRBtType::CAPABILITY_9, 1);
    EXPECT_EQ(client_.GetCapability(KYRBtType::CAPABILITY_9), 1);
    EXPECT_EQ(client_.GetCapability(KYRBtType::CAPABILITY_0), 0);
}

}  // namespace
}  // namespace unit
