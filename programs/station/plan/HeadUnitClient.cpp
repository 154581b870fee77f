#include "programs/station/plan/HeadUnitClient.h"

#include <gio/gio.h>

#include <cstdlib>
#include <mutex>

#include "programs/SessionBus.h"

namespace programs::station_tool {

namespace {

constexpr const char* kName = "com.zent.linux.headunit";
constexpr const char* kPath = "/com/zent/linux/headunit";
constexpr int kPatienceMs = 5000;

/// @returns the error's text without the name of its kind; frees it.
std::string take(GError* error)
{
    if (error == nullptr) {
        return "unknown reason";
    }
    g_dbus_error_strip_remote_error(error);
    std::string text = error->message;
    g_error_free(error);
    return text;
}

}  // namespace

struct HeadUnitClient::State {
    std::once_flag connected;
    GDBusConnection* bus = nullptr;

    GDBusConnection* connection()
    {
        std::call_once(connected, [this] {
            // Without an address the bus would be looked for by starting one.
            if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS"); address == nullptr || *address == '\0') {
                return;
            }
            GError* error = nullptr;
            bus = connectToSessionBus(&error);
            g_clear_error(&error);
        });
        return bus;
    }

    /// @param arguments floating
    void call(const char* method, GVariant* arguments)
    {
        GVariant* const owned = g_variant_ref_sink(arguments);
        GDBusConnection* const at = connection();
        GError* error = nullptr;
        GVariant* const reply =
            at == nullptr ? nullptr
                          : g_dbus_connection_call_sync(at, kName, kPath, kName, method, owned, nullptr,
                                                        G_DBUS_CALL_FLAGS_NO_AUTO_START, kPatienceMs, nullptr, &error);
        g_variant_unref(owned);
        if (reply == nullptr) {
            throw station::plan::HeadUnitError("the simulated head unit refused: " + take(error));
        }
        g_variant_unref(reply);
    }
};

HeadUnitClient::HeadUnitClient() : state_(std::make_unique<State>()) {}

HeadUnitClient::~HeadUnitClient()
{
    if (state_->bus != nullptr) {
        g_object_unref(state_->bus);
    }
}

bool HeadUnitClient::present()
{
    GDBusConnection* const bus = state_->connection();
    if (bus == nullptr) {
        return false;
    }
    GVariant* const reply = g_dbus_connection_call_sync(
        bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "NameHasOwner",
        g_variant_new("(s)", kName), G_VARIANT_TYPE("(b)"), G_DBUS_CALL_FLAGS_NONE, kPatienceMs, nullptr, nullptr);
    gboolean owned = FALSE;
    if (reply != nullptr) {
        g_variant_get(reply, "(b)", &owned);
        g_variant_unref(reply);
    }
    return owned != FALSE;
}

void HeadUnitClient::set(const std::string& path, const std::string& json)
{
    state_->call("SetState", g_variant_new("(ss)", path.c_str(), json.c_str()));
}

void HeadUnitClient::raise(const std::string& event, const std::string& json)
{
    state_->call("RaiseEvent", g_variant_new("(ss)", event.c_str(), json.c_str()));
}

}  // namespace programs::station_tool
