#include "platform/linux/Bluetooth.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "bluez_agent.h"
#include "platform/runtime/BluetoothClients.h"
#include "platform/runtime/DeliveryTurns.h"
#include "platform/runtime/Report.h"

namespace unit {
namespace {

constexpr const char* kBluez = "org.bluez";
constexpr const char* kAdapter = "org.bluez.Adapter1";
constexpr const char* kDevice = "org.bluez.Device1";
constexpr const char* kMediaControl = "org.bluez.MediaControl1";
constexpr const char* kMediaPlayer = "org.bluez.MediaPlayer1";
constexpr const char* kAgentManager = "org.bluez.AgentManager1";
constexpr const char* kAgentPath = "/com/zent/linux/unit/agent";
constexpr std::chrono::seconds kBluezDeadline{10};

/// BlueZ itself gives up a pairing after some 30 s.
constexpr std::chrono::seconds kPairingLimit{30};

constexpr int kConnected = 1;

/// The kind of request that the service answers.
constexpr int kIncomingPairing = 0;

}  // namespace

Bluetooth::Bluetooth(UnitConfig::Bluetooth config, Bus& systemBus, StatusBoard& board, bool isAgent)
    : config_(std::move(config))
    , bus_(systemBus)
    , board_(board)
    , isAgent_(isAgent)
    , agent_(G_DBUS_INTERFACE_SKELETON(org_bluez_agent1_skeleton_new()))
    , bluez_(systemBus, kBluez, "/",
             {.presence = [this](const std::string& reason) { showState(reason); }, .changed = [this] { look(); }})
{
    const auto handle = [this](const char* method, GCallback handler) {
        g_signal_connect(agent_.get(), method, handler, this);
    };
    handle("handle-request-confirmation",
           G_CALLBACK(+[](OrgBluezAgent1*, GDBusMethodInvocation* call, const char* device, guint, gpointer self) {
               static_cast<Bluetooth*>(self)->requestPairing(call, device);
               return TRUE;
           }));
    handle("handle-request-authorization",
           G_CALLBACK(+[](OrgBluezAgent1*, GDBusMethodInvocation* call, const char* device, gpointer self) {
               static_cast<Bluetooth*>(self)->requestPairing(call, device);
               return TRUE;
           }));
    // A paired device may use the unit's profiles.
    handle("handle-authorize-service",
           G_CALLBACK(+[](OrgBluezAgent1* agent, GDBusMethodInvocation* call, const char*, const char*, gpointer) {
               org_bluez_agent1_complete_authorize_service(agent, call);
               return TRUE;
           }));
    handle("handle-cancel", G_CALLBACK(+[](OrgBluezAgent1* agent, GDBusMethodInvocation* call, gpointer self) {
               static_cast<Bluetooth*>(self)->endPairing(false);
               org_bluez_agent1_complete_cancel(agent, call);
               return TRUE;
           }));
    handle("handle-release", G_CALLBACK(+[](OrgBluezAgent1* agent, GDBusMethodInvocation* call, gpointer) {
               org_bluez_agent1_complete_release(agent, call);
               return TRUE;
           }));
    bus_.add(*this);
}

Bluetooth::~Bluetooth()
{
    bus_.remove(*this);
    onBus(nullptr, "");
}

void Bluetooth::onBus(GDBusConnection* connection, const std::string&)
{
    endPairing(false);
    if (g_dbus_interface_skeleton_get_connection(agent_.get()) != nullptr) {
        g_dbus_interface_skeleton_unexport(agent_.get());
    }
    if (connection != nullptr) {
        g_dbus_interface_skeleton_export(agent_.get(), connection, kAgentPath, nullptr);
    }
}

void Bluetooth::showState(const std::string& reason)
{
    if (reason.empty()) {
        offerAgent();
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        seen_ = {};
    }
    board_.set("bluetooth", State::kAbsent, reason);
}

void Bluetooth::offerAgent()
{
    if (!isAgent_) {
        return;
    }
    bluez_.call("/org/bluez", kAgentManager, "RegisterAgent", g_variant_new("(os)", kAgentPath, "DisplayYesNo"),
                kBluezDeadline, [this](GVariant* result, const std::string& error) {
                    if (result == nullptr) {
                        runtime::report("bluetooth: requests to pair will not be answered: " + error);
                        return;
                    }
                    bluez_.call("/org/bluez", kAgentManager, "RequestDefaultAgent", g_variant_new("(o)", kAgentPath),
                                kBluezDeadline);
                });
}

std::string Bluetooth::findAdapter() const
{
    const auto adapters = bluez_.pathsWith(kAdapter);
    const auto found = std::ranges::find_if(adapters, [this](const std::string& path) {
        return config_.adapter.empty() || path == "/org/bluez/" + config_.adapter;
    });
    return found == adapters.end() ? "" : *found;
}

void Bluetooth::look()
{
    Seen now;
    now.adapter = findAdapter();
    if (!now.adapter.empty()) {
        now.attributes[KYRBtType::ATTRIBUTE_LOCAL_ADDRESS] = bluez_.text(now.adapter, kAdapter, "Address");
        now.attributes[KYRBtType::ATTRIBUTE_LOCAL_NAME] = bluez_.text(now.adapter, kAdapter, "Alias");
        now.attributes[KYRBtType::ATTRIBUTE_VERSION] =
            config_.version.empty() ? bluez_.text(now.adapter, kAdapter, "Modalias") : config_.version;
        now.powered = bluez_.flag(now.adapter, kAdapter, "Powered");
    }
    for (const std::string& device : bluez_.pathsWith(kMediaControl)) {
        if (now.media.nState != kConnected && bluez_.flag(device, kMediaControl, "Connected")) {
            now.media = {kConnected, bluez_.text(device, kDevice, "Alias")};
            const std::string status =
                bluez_.text(bluez_.text(device, kMediaControl, "Player"), kMediaPlayer, "Status");
            now.music = status == "playing"  ? KYRBtType::MUSIC_PLAYING
                        : status == "paused" ? KYRBtType::MUSIC_PAUSED
                                             : KYRBtType::MusicStatus{};
        }
    }
    bool changed = false;
    {
        const std::lock_guard lock(mutex_);
        changed = now.powered != seen_.powered;
        seen_ = now;
    }
    // After the values: whoever waits for the state reads them next.
    if (now.adapter.empty()) {
        board_.set("bluetooth", State::kAbsent,
                   config_.adapter.empty()
                       ? "expected an adapter of org.bluez, got none"
                       : fmt::format("expected the adapter {} of org.bluez, got none", config_.adapter));
    } else {
        board_.set("bluetooth", State::kUp);
    }
    if (changed) {
        runtime::tellBluetoothClients([&](IKYRBtComListener& listener) {
            listener.OnOpenBtStatusChanged(static_cast<KYRBtType::PowerStatus>(now.powered ? 1 : 0));
        });
    }
}

int Bluetooth::getAttribute(KYRBtType::Attribute attribute, std::string& value) const
{
    const std::lock_guard lock(mutex_);
    const auto text = seen_.attributes.find(attribute);
    if (text == seen_.attributes.end()) {
        return 0;
    }
    value = text->second;
    return 1;
}

bool Bluetooth::deletePairings()
{
    {
        const std::lock_guard lock(mutex_);
        if (seen_.adapter.empty()) {
            return false;
        }
    }
    bus_.loop().post([this, turn = runtime::DeliveryTurns::instance().current()] { removePairings(turn); });
    return true;
}

void Bluetooth::removePairings(std::uint64_t turn)
{
    struct Removal {
        explicit Removal(std::uint64_t turnOfCommand) : turn(turnOfCommand) {}
        ~Removal()
        {
            runtime::runGuarded("bluetooth: a listener has failed", [this] {
                // The reply to the command comes first.
                runtime::DeliveryTurns::instance().waitForEnd(turn);
                runtime::tellBluetoothClients(
                    [this](IKYRBtComListener& listener) { listener.OnDeletePairStatusChanged(left == 0 ? 1 : 0); });
            });
        }
        const std::uint64_t turn;
        std::size_t left = 0;  // devices that are still paired, as far as BlueZ has said
    };

    // Told when the last answer has come, or cannot come any more.
    const auto removal = std::make_shared<Removal>(turn);
    const std::string adapter = findAdapter();
    removal->left = adapter.empty() ? 1 : 0;
    for (const std::string& device : bluez_.pathsWith(kDevice)) {
        if (bluez_.flag(device, kDevice, "Paired") && bluez_.text(device, kDevice, "Adapter") == adapter) {
            ++removal->left;
            bluez_.call(
                adapter, kAdapter, "RemoveDevice", g_variant_new("(o)", device.c_str()), kBluezDeadline,
                [removal](GVariant* result, const std::string&) { removal->left -= result != nullptr ? 1 : 0; });
        }
    }
}

void Bluetooth::setCapability(int capability, int value)
{
    const std::lock_guard lock(mutex_);
    capabilities_[capability] = value;
}

int Bluetooth::capability(int capability) const
{
    const std::lock_guard lock(mutex_);
    const auto found = capabilities_.find(capability);
    return found == capabilities_.end() ? 0 : found->second;
}

void Bluetooth::requestPairing(GDBusMethodInvocation* invocation, const char* device)
{
    endPairing(false);
    pairing_.reset(invocation);
    pairingLimit_ = bus_.loop().after(kPairingLimit, [this] { endPairing(false); });
    const std::string address = bluez_.text(device, kDevice, "Address");
    const std::string name = bluez_.text(device, kDevice, "Alias");
    runtime::tellBluetoothClients([&](IKYRBtComListener& listener) {
        listener.OnAnswerPairRequest(address, name, kIncomingPairing, KYRBtType::PAIR_REQUESTED);
    });
}

void Bluetooth::answerPair(KYRBtType::PairRequestState state)
{
    bus_.loop().post([this, accepted = state == KYRBtType::PAIR_REQUESTED] { endPairing(accepted); });
}

void Bluetooth::endPairing(bool accepted)
{
    pairingLimit_.reset();
    if (!pairing_) {
        return;
    }
    // Takes the reference.
    if (accepted) {
        g_dbus_method_invocation_return_value(pairing_.release(), nullptr);
    } else {
        g_dbus_method_invocation_return_dbus_error(pairing_.release(), "org.bluez.Error.Rejected", "not accepted");
    }
}

KYRBtConnectionState Bluetooth::mediaConnection() const
{
    const std::lock_guard lock(mutex_);
    return seen_.media;
}

KYRBtType::MusicStatus Bluetooth::musicStatus() const
{
    const std::lock_guard lock(mutex_);
    return seen_.music;
}

}  // namespace unit
