#pragma once

#include <gio/gio.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace programs {

/// Cancels a GCancellable when a while has passed, unless this object goes first.
class CancelAfter
{
public:
    CancelAfter(GCancellable* cancellable, std::chrono::milliseconds patience)
        : thread_([this, cancellable, patience] {
            std::unique_lock lock(mutex_);
            if (!over_.wait_for(lock, patience, [this] { return done_; })) {
                g_cancellable_cancel(cancellable);
            }
        })
    {
    }
    ~CancelAfter()
    {
        {
            const std::lock_guard lock(mutex_);
            done_ = true;
        }
        over_.notify_all();
        thread_.join();
    }
    CancelAfter(const CancelAfter&) = delete;
    CancelAfter& operator=(const CancelAfter&) = delete;

private:
    std::mutex mutex_;
    std::condition_variable over_;
    bool done_ = false;  // guarded by mutex_
    std::thread thread_;
};

/// Connects to the session bus. A bus that takes the connection and then stands still is given up after a while; by
/// itself GDBus would wait for ever.
/// @param error set on failure; G_IO_ERROR_CANCELLED when the bus did not answer in time
/// @returns the connection, the caller's own, which does not end the process when the bus goes; null on failure
inline GDBusConnection* connectToSessionBus(GError** error)
{
    constexpr std::chrono::seconds kPatience{5};
    GCancellable* const cancellable = g_cancellable_new();
    GDBusConnection* connection = nullptr;
    {
        const CancelAfter limit(cancellable, kPatience);
        // The process's shared one would be given again after it has closed.
        if (gchar* const address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, cancellable, error)) {
            connection = g_dbus_connection_new_for_address_sync(
                address,
                static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                  G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
                nullptr, cancellable, error);
            g_free(address);
        }
    }
    g_object_unref(cancellable);
    if (connection != nullptr) {
        g_dbus_connection_set_exit_on_close(connection, FALSE);
    }
    return connection;
}

}  // namespace programs
