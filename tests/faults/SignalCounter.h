#pragma once

#include <gio/gio.h>

#include <cstddef>
#include <mutex>
#include <string>

namespace tests {

/// A subscriber of the engineering service's signals that counts them and keeps none, so that any number may come.
class SignalCounter
{
public:
    /// Connects to `address` and returns when no signal can be missed any more.
    explicit SignalCounter(const std::string& address);
    ~SignalCounter();

    SignalCounter(const SignalCounter&) = delete;
    SignalCounter& operator=(const SignalCounter&) = delete;

    std::size_t count() const;

    /// Waits until `wanted` signals have come.
    /// @returns whether they have come; false after a generous while in which none came.
    bool waitFor(std::size_t wanted) const;

private:
    static GDBusMessage* onMessage(GDBusConnection* connection, GDBusMessage* message, gboolean incoming,
                                   gpointer self);

    GDBusConnection* connection_;
    mutable std::mutex mutex_;
    std::size_t count_;  // guarded by mutex_
};

}  // namespace tests
