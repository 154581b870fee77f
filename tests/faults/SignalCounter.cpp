#include "tests/faults/SignalCounter.h"

#include <stdexcept>

namespace tests {

namespace {

constexpr const char* kInterface = "com.zent.linux.engineering";

}  // namespace

SignalCounter::SignalCounter(const std::string& address)
    : connection_(g_dbus_connection_new_for_address_sync(
          address.c_str(),
          static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                            G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
          nullptr, nullptr, nullptr))
{
    if (connection_ == nullptr) {
        throw std::runtime_error("no bus at " + address);
    }
    {
        // ThreadSanitizer does not see how the library hands this object to its thread.
        const std::lock_guard lock(mutex_);
        count_ = 0;
    }
    // A filter runs on the library's own thread: no main loop is needed.
    g_dbus_connection_add_filter(connection_, onMessage, this, nullptr);
    const std::string rule = std::string("type='signal',interface='") + kInterface + "'";
    GVariant* const reply = g_dbus_connection_call_sync(
        connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "AddMatch",
        g_variant_new("(s)", rule.c_str()), nullptr, G_DBUS_CALL_FLAGS_NONE, 20'000, nullptr, nullptr);
    if (reply == nullptr) {
        throw std::runtime_error("the bus takes no subscription");
    }
    g_variant_unref(reply);
}

SignalCounter::~SignalCounter()
{
    g_dbus_connection_close_sync(connection_, nullptr, nullptr);
    g_object_unref(connection_);
}

std::size_t SignalCounter::count() const
{
    const std::lock_guard lock(mutex_);
    return count_;
}

bool SignalCounter::waitFor(std::size_t wanted) const
{
    for (std::size_t have = count(); have < wanted; have = count()) {
        // The bus delivers in order: what was sent before this answer was asked for has been counted when it is here.
        GVariant* const reply = g_dbus_connection_call_sync(connection_, kInterface, "/com/zent/linux/engineering",
                                                            "org.freedesktop.DBus.Peer", "Ping", nullptr, nullptr,
                                                            G_DBUS_CALL_FLAGS_NONE, 20'000, nullptr, nullptr);
        if (reply == nullptr) {
            return false;
        }
        g_variant_unref(reply);
        if (count() == have) {
            return false;
        }
    }
    return true;
}

GDBusMessage* SignalCounter::onMessage(GDBusConnection*, GDBusMessage* message, gboolean incoming, gpointer self)
{
    if (incoming == FALSE || g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_SIGNAL ||
        g_strcmp0(g_dbus_message_get_interface(message), kInterface) != 0) {
        return message;
    }
    auto& counter = *static_cast<SignalCounter*>(self);
    {
        const std::lock_guard lock(counter.mutex_);
        ++counter.count_;
    }
    g_object_unref(message);
    return nullptr;
}

}  // namespace tests
