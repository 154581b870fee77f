#include "platform/linux/Wifi.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "platform/runtime/Report.h"
#include "protocol/Text.h"

namespace unit {
namespace {

constexpr const char* kNetworkManager = "org.freedesktop.NetworkManager";
constexpr const char* kManagerPath = "/org/freedesktop/NetworkManager";
constexpr const char* kProfilesPath = "/org/freedesktop/NetworkManager/Settings";
constexpr const char* kProfiles = "org.freedesktop.NetworkManager.Settings";
constexpr const char* kWifiProfile = "org.freedesktop.NetworkManager.Settings.Connection";
constexpr const char* kActiveConnection = "org.freedesktop.NetworkManager.Connection.Active";
constexpr const char* kWifiDevice = "org.freedesktop.NetworkManager.Device";
constexpr const char* kProfileName = "engineering-unit";

constexpr std::chrono::seconds kManagerDeadline{10};

/// An access point is up after some 4 s.
constexpr std::chrono::seconds kRetryWifi{20};

// NetworkManager's states of a device and of an active connection.
constexpr guint32 kUnmanaged = 10;
constexpr guint32 kUnavailable = 20;
constexpr guint32 kActivating = 1;
constexpr guint32 kActivated = 2;

/// A UUID that is another one for another access point.
std::string uuidOf(const UnitConfig::Wifi& wifi)
{
    const std::string all = fmt::format("{}\n{}\n{}", wifi.interface, wifi.ssid, wifi.password);
    const host::GlibPtr<char> sum(g_compute_checksum_for_string(G_CHECKSUM_SHA256, all.c_str(), -1));
    const std::string hex = sum.get();
    return fmt::format("{}-{}-8{}-8{}-{}", hex.substr(0, 8), hex.substr(8, 4), hex.substr(12, 3), hex.substr(15, 3),
                       hex.substr(18, 12));
}

/// @returns a setting of a profile, a{sa{sv}}; null if it is not there, or not of this type.
host::GlibPtr<GVariant> settingIn(GVariant* settings, const char* section, const char* key, const GVariantType* type)
{
    const host::GlibPtr<GVariant> all(g_variant_lookup_value(settings, section, G_VARIANT_TYPE_VARDICT));
    return host::GlibPtr<GVariant>(all ? g_variant_lookup_value(all.get(), key, type) : nullptr);
}

std::string textIn(GVariant* settings, const char* section, const char* key)
{
    const auto value = settingIn(settings, section, key, G_VARIANT_TYPE_STRING);
    return value ? g_variant_get_string(value.get(), nullptr) : "";
}

std::string ssidIn(GVariant* settings)
{
    const auto value = settingIn(settings, "802-11-wireless", "ssid", G_VARIANT_TYPE_BYTESTRING);
    gsize size = 0;
    const void* const bytes = value ? g_variant_get_fixed_array(value.get(), &size, 1) : nullptr;
    return std::string(static_cast<const char*>(bytes), bytes == nullptr ? 0 : size);
}

/// A tuple with the settings of the profile that is made, (a{sa{sv}}).
GVariant* settingsOf(const UnitConfig::Wifi& wifi, const std::string& uuid)
{
    using Value = std::pair<const char*, GVariant*>;
    GVariantBuilder all;
    g_variant_builder_init(&all, G_VARIANT_TYPE("a{sa{sv}}"));
    const auto add = [&all](const char* section, std::initializer_list<Value> values) {
        GVariantBuilder each;
        g_variant_builder_init(&each, G_VARIANT_TYPE_VARDICT);
        for (const auto& [key, value] : values) {
            g_variant_builder_add(&each, "{sv}", key, value);
        }
        g_variant_builder_add(&all, "{sa{sv}}", section, &each);
    };
    const auto text = [](const std::string& value) { return g_variant_new_string(value.c_str()); };
    add("connection", {{"id", text(kProfileName)},
                       {"uuid", text(uuid)},
                       {"type", text("802-11-wireless")},
                       {"interface-name", text(wifi.interface)},
                       {"autoconnect", g_variant_new_boolean(FALSE)}});
    add("802-11-wireless",
        {{"mode", text("ap")},
         {"ssid", g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, wifi.ssid.data(), wifi.ssid.size(), 1)}});
    if (!wifi.password.empty()) {
        add("802-11-wireless-security", {{"key-mgmt", text("wpa-psk")}, {"psk", text(wifi.password)}});
    }
    add("ipv4", {{"method", text("shared")}});
    add("ipv6", {{"method", text("ignore")}});
    return g_variant_new("(a{sa{sv}})", &all);
}

}  // namespace

Wifi::Wifi(UnitConfig::Wifi config, Bus& systemBus, StatusBoard& board, bool serves, std::function<void()> isUp)
    : config_(std::move(config))
    , uuid_(uuidOf(config_))
    , bus_(systemBus)
    , board_(board)
    , serves_(serves)
    , isUp_(std::move(isUp))
    , isWanted_(config_.activate)
    , tree_(systemBus, kNetworkManager, "/org/freedesktop",
            {.presence = [this](const std::string& reason) { onPresence(reason); }, .changed = [this] { follow(); }})
{
}

std::string Wifi::GetText()
{
    const std::lock_guard lock(mutex_);
    return text_;
}

void Wifi::activate()
{
    isWanted_ = true;
    if (isThere_) {
        follow();
    }
}

void Wifi::onPresence(const std::string& reason)
{
    isThere_ = reason.empty();
    ++asked_;
    answersDue_ = 0;
    retry_.reset();
    profile_.clear();
    failure_.clear();
    searched_.reset();
    if (!reason.empty()) {
        absent(reason.ends_with("is not running") ? reason + "; install network-manager" : reason);
    }
}

void Wifi::absent(const std::string& reason)
{
    board_.set("wifi", State::kAbsent, reason);
}

/// Takes NetworkManager's objects as they now are, and does what is next.
void Wifi::follow()
{
    if (const std::string problem = findDevice(); !problem.empty()) {
        absent(problem);
        return;
    }
    const auto profiles = tree_.pathsWith(kWifiProfile);
    if (std::ranges::find(profiles, profile_) == profiles.end()) {
        if (!std::exchange(profile_, "").empty()) {
            searched_.reset();
        }
        if (answersDue_ == 0 && profiles != searched_) {
            findProfile(profiles);
        }
        return;
    }
    const bool isActive = isIn(kActivated);
    if (isActive) {
        failure_.clear();
        retry_.reset();
    } else if (isWanted_ && serves_ && !retry_) {
        tryActivation();
    }
    board_.set("wifi", failure_.empty() ? State::kUp : State::kAbsent, failure_);
    if (isActive) {
        isUp_();
    }
}

/// @returns why there is none that can be used; else empty.
std::string Wifi::findDevice()
{
    const auto devices = tree_.pathsWith(kWifiDevice);
    const auto device = std::ranges::find_if(
        devices, [this](const auto& path) { return tree_.text(path, kWifiDevice, "Interface") == config_.interface; });
    if (device == devices.end()) {
        return fmt::format("expected the network interface {}, got none", config_.interface);
    }
    device_ = *device;
    const auto state = tree_.property(device_, kWifiDevice, "State", G_VARIANT_TYPE_UINT32);
    switch (state ? g_variant_get_uint32(state.get()) : 0) {
        case kUnmanaged:
            return fmt::format("NetworkManager does not manage {0}; run 'nmcli device set {0} managed yes'",
                               config_.interface);
        case kUnavailable:
            return fmt::format("{} is unavailable; install wpasupplicant, or run 'rfkill unblock wifi'",
                               config_.interface);
        default:
            return "";
    }
}

/// @returns whether NetworkManager has an active connection of the profile in this state.
bool Wifi::isIn(guint32 wanted) const
{
    return std::ranges::any_of(tree_.pathsWith(kActiveConnection), [&](const auto& path) {
        const auto state = tree_.property(path, kActiveConnection, "State", G_VARIANT_TYPE_UINT32);
        return tree_.text(path, kActiveConnection, "Connection") == profile_ && state &&
               g_variant_get_uint32(state.get()) == wanted;
    });
}

void Wifi::findProfile(std::vector<std::string> paths)
{
    searched_ = std::move(paths);
    retry_.reset();
    answersDue_ = 1;
    const auto oneAnswered = [this, number = asked_](const std::string& path, GVariant* settings) {
        if (number != asked_) {
            return;
        }
        if (settings != nullptr && profile_.empty()) {
            readProfile(path, settings);
        }
        if (--answersDue_ > 0) {
            return;
        }
        if (profile_.empty()) {
            addProfile();
        } else {
            follow();
        }
    };
    for (const std::string& path : std::vector(*searched_)) {
        ++answersDue_;
        tree_.call(path, kWifiProfile, "GetSettings", nullptr, kManagerDeadline,
                   [oneAnswered, path](GVariant* result, const std::string&) {
                       const bool is = result != nullptr && g_variant_is_of_type(result, G_VARIANT_TYPE("(a{sa{sv}})"));
                       const host::GlibPtr<GVariant> settings(is ? g_variant_get_child_value(result, 0) : nullptr);
                       oneAnswered(path, settings.get());
                   });
    }
    oneAnswered("", nullptr);
}

void Wifi::readProfile(const std::string& path, GVariant* settings)
{
    const bool isIt = config_.profile.empty() ? textIn(settings, "connection", "uuid") == uuid_
                                              : textIn(settings, "connection", "id") == config_.profile;
    if (isIt && textIn(settings, "802-11-wireless", "mode") == "ap") {
        profile_ = path;
        const std::lock_guard lock(mutex_);
        text_ = ssidIn(settings);
    }
}

void Wifi::addProfile()
{
    const auto tryAgain = [this](const std::string& reason) {
        absent(reason);
        retry_ = bus_.loop().after(kRetryWifi, [this] {
            retry_.reset();
            searched_.reset();
            follow();
        });
    };
    if (!config_.profile.empty()) {
        tryAgain(fmt::format("expected a profile of NetworkManager with the name {} and the mode ap, got none",
                             protocol::inQuotes(config_.profile)));
        return;
    }
    if (!serves_) {
        board_.set("wifi", State::kUp);
        return;
    }
    answersDue_ = 1;
    tree_.call(kProfilesPath, kProfiles, "AddConnectionUnsaved", settingsOf(config_, uuid_), kManagerDeadline,
               [this, number = asked_, tryAgain](GVariant* result, const std::string& error) {
                   if (number != asked_) {
                       return;
                   }
                   answersDue_ = 0;
                   if (result == nullptr) {
                       tryAgain(fmt::format("{}: {}", kNetworkManager, error));
                   } else {
                       follow();
                   }
               });
}

void Wifi::tryActivation()
{
    if (failure_.empty()) {
        failure_ = "the access point is not active yet";
    }
    retry_ = bus_.loop().after(kRetryWifi, [this] {
        retry_.reset();
        failure_ = "the access point does not become active; 'journalctl -u NetworkManager' says why";
        follow();
    });
    if (isIn(kActivating)) {
        return;  // another activation would end this one
    }
    tree_.call(kManagerPath, kNetworkManager, "ActivateConnection",
               g_variant_new("(ooo)", profile_.c_str(), device_.c_str(), "/"), kManagerDeadline,
               [this, number = asked_](GVariant* result, const std::string& error) {
                   if (number == asked_ && result == nullptr) {
                       failure_ = fmt::format("{}: {}", kNetworkManager, error);
                       follow();
                   }
               });
}

}  // namespace unit
