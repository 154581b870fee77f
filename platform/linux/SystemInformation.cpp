#include "platform/linux/SystemInformation.h"

#include <sys/utsname.h>

#include <string_view>
#include <utility>

#include "protocol/Text.h"

namespace unit {
namespace {

using Source = UnitConfig::Version::Source;

constexpr const char* kSystemInfo = "system-info";
constexpr const char* kHostnamed = "org.freedesktop.hostname1";
constexpr std::chrono::seconds kHostnameDeadline{10};

std::string osRelease(const std::string& key)
{
    const host::GlibPtr<char> value(g_get_os_info(key.c_str()));
    return value ? value.get() : "";
}

std::string uname(std::string_view key)
{
    struct utsname names = {};
    ::uname(&names);
    return key == "release" ? names.release : key == "version" ? names.version : key == "machine" ? names.machine : "";
}

}  // namespace

SystemInformation::SystemInformation(std::array<UnitConfig::Version, 11> sources, Bus& systemBus, StatusBoard& board)
    : sources_(std::move(sources)), bus_(systemBus), board_(board)
{
    for (std::size_t i = 0; i < sources_.size(); ++i) {
        const auto& [source, value] = sources_[i];
        versions_.strField[i] = source == Source::kText        ? value
                                : source == Source::kOsRelease ? osRelease(value)
                                : source == Source::kUname     ? uname(value)
                                                               : "";
    }
    bus_.add(*this);
}

SystemInformation::~SystemInformation()
{
    bus_.remove(*this);
    unwatch();
}

void SystemInformation::unwatch()
{
    if (watch_ != 0) {
        g_bus_unwatch_name(std::exchange(watch_, 0));
    }
}

int SystemInformation::GetVersionInfo(SystemInfo::VersionInfo& info)
{
    bus_.loop().post([this] { ask(); });
    const std::lock_guard lock(mutex_);
    info = versions_;
    return 1;
}

void SystemInformation::onBus(GDBusConnection* connection, const std::string& reason)
{
    connection_ = connection;
    isAsking_ = false;
    unwatch();
    if (connection == nullptr) {
        board_.set(kSystemInfo, State::kAbsent, reason);
        return;
    }
    // Where the bus cannot start hostnamed, it may come later.
    watch_ = g_bus_watch_name_on_connection(
        connection, kHostnamed, G_BUS_NAME_WATCHER_FLAGS_NONE,
        [](GDBusConnection*, const gchar*, const gchar*, gpointer self) {
            static_cast<SystemInformation*>(self)->ask();
        },
        nullptr, this, nullptr);
    ask();
}

void SystemInformation::ask()
{
    if (connection_ == nullptr || std::exchange(isAsking_, true)) {
        return;
    }
    // hostnamed ends when it has nothing to do, and the bus starts it again for a call.
    g_dbus_connection_call(
        connection_, kHostnamed, "/org/freedesktop/hostname1", "org.freedesktop.DBus.Properties", "GetAll",
        g_variant_new("(s)", kHostnamed), G_VARIANT_TYPE("(a{sv})"), G_DBUS_CALL_FLAGS_NONE,
        static_cast<gint>(std::chrono::milliseconds(kHostnameDeadline).count()), bus_.loop().cancellable(),
        Loop::complete, bus_.loop().expect([this, asked = connection_](GObject* source, GAsyncResult* result) {
            host::GlibError error;
            const host::GlibPtr<GVariant> reply(
                g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, error.out()));
            if (asked != connection_ || error.is(G_IO_ERROR, G_IO_ERROR_CANCELLED)) {
                return;
            }
            isAsking_ = false;
            if (reply) {
                take(reply.get());
            }
            board_.set(kSystemInfo, reply ? State::kUp : State::kAbsent,
                       reply ? "" : std::string(kHostnamed) + ": " + protocol::printable(error.message()));
        }));
}

void SystemInformation::take(GVariant* properties)
{
    const host::GlibPtr<GVariant> all(g_variant_get_child_value(properties, 0));
    const std::lock_guard lock(mutex_);
    for (std::size_t i = 0; i < sources_.size(); ++i) {
        const char* text = nullptr;
        if (sources_[i].source == Source::kHostname &&
            g_variant_lookup(all.get(), sources_[i].value.c_str(), "&s", &text)) {
            versions_.strField[i] = text;
        }
    }
}

int Configuration::GetBool(const char* pKey)
{
    const auto flag = flags_.find(pKey);
    return flag != flags_.end() && flag->second ? 1 : 0;
}

int Configuration::GetText(const char* pKey, std::string& strValue)
{
    const auto text = texts_.find(pKey);
    if (text == texts_.end()) {
        return 0;
    }
    strValue = text->second;
    return 1;
}

}  // namespace unit
