#include "tests/support/PrivateBus.h"

#include <gio/gio.h>
#include <gtest/gtest.h>

namespace tests {
namespace {

/// @returns whether the bus at `address` takes a client and answers it within `timeoutMs`.
bool answers(const std::string& address, int timeoutMs)
{
    GDBusConnection* connection = g_dbus_connection_new_for_address_sync(
        address.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, nullptr);
    if (connection == nullptr) {
        return false;
    }
    GVariant* reply =
        g_dbus_connection_call_sync(connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                    "GetId", nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, timeoutMs, nullptr, nullptr);
    const bool answered = reply != nullptr;
    g_clear_pointer(&reply, g_variant_unref);
    g_object_unref(connection);
    return answered;
}

TEST(PrivateBus, TakesClients)
{
    PrivateBus bus;

    EXPECT_TRUE(answers(bus.address(), 20'000));
}

TEST(PrivateBus, EachHasAnAddressOfItsOwn)
{
    PrivateBus one;
    PrivateBus other;

    EXPECT_NE(one.address(), other.address());
}

TEST(PrivateBus, ThatWasKilledTakesNoClients)
{
    PrivateBus bus;

    bus.kill();

    EXPECT_FALSE(answers(bus.address(), 20'000));
}

TEST(PrivateBus, ThatStoodStillGoesOn)
{
    PrivateBus bus;

    bus.stop();
    bus.cont();

    EXPECT_TRUE(answers(bus.address(), 20'000));
}

}  // namespace
}  // namespace tests
