#include "programs/station/plan/HeadUnitClient.h"

#include <cstdlib>
#include <mutex>

#include "host/Glib.h"

namespace programs::station_tool {

namespace {

constexpr const char* kName = "com.zent.linux.headunit";
constexpr const char* kPath = "/com/zent/linux/headunit";
constexpr int kPatienceMs = 5000;

}  // namespace

struct HeadUnitClient::State {
    std::once_flag connected;
    host::GlibPtr<GDBusConnection> bus;

    GDBusConnection* connection()
    {
        std::call_once(connected, [this] {
            // Without an address the bus would be looked for by starting one.
            if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS"); address != nullptr && *address != '\0') {
                host::GlibError ignored;
                bus = host::connectToSessionBus(ignored);
            }
        });
        return bus.get();
    }

    /// @param arguments floating
    void call(const char* method, GVariant* arguments)
    {
        const host::GlibPtr<GVariant> owned(g_variant_ref_sink(arguments));
        GDBusConnection* const at = connection();
        host::GlibError error;
        const host::GlibPtr<GVariant> reply(
            at == nullptr
                ? nullptr
                : g_dbus_connection_call_sync(at, kName, kPath, kName, method, owned.get(), nullptr,
                                              G_DBUS_CALL_FLAGS_NO_AUTO_START, kPatienceMs, nullptr, error.out()));
        if (!reply) {
            throw protocol::LineError("the simulated head unit refused: " + error.message(), protocol::kError);
        }
    }
};

HeadUnitClient::HeadUnitClient() : state_(std::make_unique<State>()) {}

HeadUnitClient::~HeadUnitClient() = default;

bool HeadUnitClient::present()
{
    GDBusConnection* const bus = state_->connection();
    if (bus == nullptr) {
        return false;
    }
    const host::GlibPtr<GVariant> reply(g_dbus_connection_call_sync(
        bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "NameHasOwner",
        g_variant_new("(s)", kName), G_VARIANT_TYPE("(b)"), G_DBUS_CALL_FLAGS_NONE, kPatienceMs, nullptr, nullptr));
    gboolean owned = FALSE;
    if (reply) {
        g_variant_get(reply.get(), "(b)", &owned);
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
