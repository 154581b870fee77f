#include "platform/linux/Bus.h"

#include <fmt/format.h>

#include <utility>

#include "platform/runtime/Report.h"
#include "protocol/Text.h"

namespace unit {
namespace {

constexpr std::chrono::seconds kRetryBus{1};
constexpr std::chrono::seconds kPropertyDeadline{10};

std::string lineOf(host::GlibError& error)
{
    return protocol::printable(error.message());
}

}  // namespace

Bus::Bus(Loop& loop, GBusType type) : loop_(loop), type_(type)
{
    loop_.post([this] { connect(); });
}

Bus::~Bus()
{
    if (connection_) {
        g_signal_handler_disconnect(connection_.get(), closed_);
    }
}

void Bus::add(Follower& follower)
{
    followers_.insert(&follower);
    if (connection_) {
        follower.onBus(connection_.get(), "");
    }
}

void Bus::remove(Follower& follower)
{
    followers_.erase(&follower);
}

void Bus::connect()
{
    retry_.reset();
    host::GlibError error;
    const host::GlibPtr<char> address(g_dbus_address_get_for_bus_sync(type_, nullptr, error.out()));
    if (!address) {
        lost("no bus: " + lineOf(error));
        return;
    }
    g_dbus_connection_new_for_address(address.get(), host::kBusConnectionFlags, nullptr, loop_.cancellable(),
                                      Loop::complete,
                                      loop_.expect([this](GObject*, GAsyncResult* result) { connected(result); }));
}

void Bus::connected(GAsyncResult* result)
{
    host::GlibError error;
    connection_.reset(g_dbus_connection_new_for_address_finish(result, error.out()));
    if (error.is(G_IO_ERROR, G_IO_ERROR_CANCELLED)) {
        return;
    }
    if (!connection_) {
        lost("no bus: " + lineOf(error));
        return;
    }
    g_dbus_connection_set_exit_on_close(connection_.get(), FALSE);
    closed_ = g_signal_connect(connection_.get(), "closed",
                               G_CALLBACK(+[](GDBusConnection*, gboolean, GError*, gpointer self) {
                                   static_cast<Bus*>(self)->lost("the bus has closed the connection");
                               }),
                               this);
    tell("");
}

void Bus::lost(const std::string& reason)
{
    if (connection_) {
        g_signal_handler_disconnect(connection_.get(), std::exchange(closed_, 0));
        // GDBus keeps the socket after a message that it cannot decode, and the bus would keep the names.
        g_io_stream_close(g_dbus_connection_get_stream(connection_.get()), nullptr, nullptr);
        connection_.reset();
    }
    retry_ = loop_.after(kRetryBus, [this] { connect(); });
    tell(reason);
}

void Bus::tell(const std::string& reason)
{
    for (Follower* const follower : std::set(followers_)) {
        if (followers_.contains(follower)) {
            follower->onBus(connection_.get(), reason);
        }
    }
}

BusObject::BusObject(Bus& bus, Address address, Events events)
    : bus_(bus), address_(std::move(address)), events_(std::move(events))
{
    bus_.add(*this);
}

BusObject::~BusObject()
{
    bus_.remove(*this);
    drop();
}

void BusObject::drop()
{
    if (proxy_) {
        g_signal_handlers_disconnect_by_data(proxy_.get(), this);
        proxy_.reset();
    }
}

void BusObject::onBus(GDBusConnection* connection, const std::string& reason)
{
    drop();
    connection_ = connection;
    if (connection == nullptr) {
        events_.presence(reason);
        return;
    }
    // The service is followed, never started: its unit does that.
    g_dbus_proxy_new(connection, G_DBUS_PROXY_FLAGS_DO_NOT_AUTO_START, nullptr, address_.name.c_str(),
                     address_.path.c_str(), address_.interface.c_str(), bus_.loop().cancellable(), Loop::complete,
                     bus_.loop().expect([this, connection](GObject*, GAsyncResult* result) {
                         host::GlibError error;
                         host::GlibPtr<GDBusProxy> proxy(g_dbus_proxy_new_finish(result, error.out()));
                         if (connection == connection_ && !error.is(G_IO_ERROR, G_IO_ERROR_CANCELLED)) {
                             made(std::move(proxy), error);
                         }
                     }));
}

void BusObject::made(host::GlibPtr<GDBusProxy> proxy, host::GlibError& error)
{
    proxy_ = std::move(proxy);
    if (!proxy_) {
        events_.presence(lineOf(error));
        return;
    }
    g_signal_connect(
        proxy_.get(), "notify::g-name-owner",
        G_CALLBACK(+[](GObject*, GParamSpec*, gpointer self) { static_cast<BusObject*>(self)->tellPresence(); }), this);
    g_signal_connect(proxy_.get(), "g-properties-changed",
                     G_CALLBACK(+[](GDBusProxy*, GVariant*, const gchar* const*, gpointer self) {
                         const Events& events = static_cast<BusObject*>(self)->events_;
                         if (events.properties) {
                             events.properties();
                         }
                     }),
                     this);
    g_signal_connect(proxy_.get(), "g-signal",
                     G_CALLBACK(+[](GDBusProxy*, const gchar*, const gchar* name, GVariant* arguments, gpointer self) {
                         const Events& events = static_cast<BusObject*>(self)->events_;
                         if (events.signal) {
                             events.signal(name, arguments);
                         }
                     }),
                     this);
    tellPresence();
}

void BusObject::tellPresence()
{
    const host::GlibPtr<char> owner(g_dbus_proxy_get_name_owner(proxy_.get()));
    events_.presence(owner ? ""
                     : address_.package.empty()
                         ? address_.name + " is not running"
                         : fmt::format("{} is not running; install {}", address_.name, address_.package));
    if (owner && events_.properties) {
        events_.properties();
    }
}

host::GlibPtr<GVariant> BusObject::property(const char* name, const GVariantType* type) const
{
    host::GlibPtr<GVariant> value(proxy_ ? g_dbus_proxy_get_cached_property(proxy_.get(), name) : nullptr);
    return value && g_variant_is_of_type(value.get(), type) ? std::move(value) : nullptr;
}

void BusObject::refresh(const std::string& name)
{
    callService(bus_.loop(), connection_, {address_.name, address_.path, "org.freedesktop.DBus.Properties"}, "Get",
                g_variant_new("(ss)", address_.interface.c_str(), name.c_str()), kPropertyDeadline,
                [this, name, asked = proxy_.get()](GVariant* result, const std::string&) {
                    if (!proxy_ || proxy_.get() != asked || result == nullptr ||
                        !g_variant_is_of_type(result, G_VARIANT_TYPE("(v)"))) {
                        return;
                    }
                    GVariant* value = nullptr;
                    g_variant_get(result, "(v)", &value);
                    const host::GlibPtr<GVariant> owner(value);
                    g_dbus_proxy_set_cached_property(proxy_.get(), name.c_str(), value);
                    if (events_.properties) {
                        events_.properties();
                    }
                });
}

void BusObject::call(const std::string& method, GVariant* arguments, std::chrono::milliseconds deadline, Done done)
{
    callService(bus_.loop(), connection_, address_, method, arguments, deadline, std::move(done));
}

void callService(Loop& loop, GDBusConnection* connection, const BusObject::Address& object, const std::string& method,
                 GVariant* arguments, std::chrono::milliseconds deadline, BusObject::Done done)
{
    if (!done) {
        done = [what = object.name + " " + method](GVariant*, const std::string& error) {
            if (!error.empty()) {
                runtime::report(fmt::format("{}: {}", what, error));
            }
        };
    }
    if (connection == nullptr) {
        if (arguments != nullptr) {
            g_variant_unref(g_variant_ref_sink(arguments));
        }
        done(nullptr, "there is no bus");
        return;
    }
    g_dbus_connection_call(connection, object.name.c_str(), object.path.c_str(), object.interface.c_str(),
                           method.c_str(), arguments, nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START,
                           static_cast<gint>(deadline.count()), loop.cancellable(), Loop::complete,
                           loop.expect([done = std::move(done)](GObject* source, GAsyncResult* result) {
                               host::GlibError error;
                               const host::GlibPtr<GVariant> reply(
                                   g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, error.out()));
                               if (!error.is(G_IO_ERROR, G_IO_ERROR_CANCELLED)) {
                                   done(reply.get(), reply ? "" : lineOf(error));
                               }
                           }));
}

}  // namespace unit
