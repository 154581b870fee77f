#pragma once

#include <gio/gio.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace host {

/// Frees what GLib and GIO give to their caller.
struct GlibDelete {
    void operator()(char* text) const { g_free(text); }
    void operator()(GVariant* value) const { g_variant_unref(value); }
    void operator()(GMainLoop* loop) const { g_main_loop_unref(loop); }
    void operator()(GMainContext* context) const { g_main_context_unref(context); }
    /// Also removes the source from its context.
    void operator()(GSource* source) const
    {
        g_source_destroy(source);
        g_source_unref(source);
    }
    template <class Object>
    void operator()(Object* object) const
    {
        g_object_unref(object);
    }
};

template <class Type>
using GlibPtr = std::unique_ptr<Type, GlibDelete>;

/// A GError for a call to set.
class GlibError
{
public:
    GlibError() = default;
    ~GlibError() { g_clear_error(&error_); }
    GlibError(const GlibError&) = delete;
    GlibError& operator=(const GlibError&) = delete;

    /// What the call takes. Frees an earlier error.
    GError** out()
    {
        g_clear_error(&error_);
        return &error_;
    }

    bool is(GQuark domain, int code) const { return g_error_matches(error_, domain, code) != FALSE; }

    /// @returns the name of an error that came over the bus; empty for any other.
    std::string remoteName() const
    {
        const GlibPtr<char> name(error_ == nullptr ? nullptr : g_dbus_error_get_remote_error(error_));
        return name ? name.get() : "";
    }

    /// @returns the message, without the name of an error that came over the bus.
    std::string message()
    {
        if (error_ == nullptr) {
            return "unknown reason";
        }
        g_dbus_error_strip_remote_error(error_);
        return error_->message;
    }

private:
    GError* error_ = nullptr;
};

/// Flags of a connection of one's own to a message bus. The shared one would be given again after it has closed, and
/// ends the process when the bus goes.
inline constexpr auto kBusConnectionFlags = static_cast<GDBusConnectionFlags>(
    G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);

/// Connects to the bus at `address`, or without one to the session bus. Waits until `cancellable` is cancelled; by
/// itself, GDBus waits for ever for a bus that takes the connection and does not answer.
/// @returns a connection that does not end the process when the bus goes; null on failure.
inline GlibPtr<GDBusConnection> connectToBus(GCancellable* cancellable, GlibError& error, const char* address = nullptr)
{
    GlibPtr<char> session;
    if (address == nullptr) {
        session.reset(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, cancellable, error.out()));
        address = session.get();
    }
    if (address == nullptr) {
        return nullptr;
    }
    GlibPtr<GDBusConnection> connection(
        g_dbus_connection_new_for_address_sync(address, kBusConnectionFlags, nullptr, cancellable, error.out()));
    if (connection) {
        g_dbus_connection_set_exit_on_close(connection.get(), FALSE);
    }
    return connection;
}

/// Cancels a GCancellable when `patience` has passed, unless this object is destroyed first.
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

/// Connects to the session bus as connectToBus() does, within `patience`.
/// @param error G_IO_ERROR_CANCELLED if the bus does not answer in time
inline GlibPtr<GDBusConnection> connectToSessionBus(GlibError& error,
                                                    std::chrono::milliseconds patience = std::chrono::seconds(5))
{
    const GlibPtr<GCancellable> cancellable(g_cancellable_new());
    const CancelAfter limit(cancellable.get(), patience);
    return connectToBus(cancellable.get(), error);
}

}  // namespace host
