#pragma once

#include <gio/gio.h>

#include <atomic>

/// Bounds the method calls that come to the bridge's object. GDBus keeps every call until the main loop takes it,
/// without a limit, while the loop may wait for a slow station. A call beyond the bounds is answered with
/// org.freedesktop.DBus.Error.LimitsExceeded. File descriptors that come with a call are closed: no method takes any.
class BusCalls
{
public:
    /// Where the bridge exports its object.
    static constexpr const char* kObjectPath = "/com/zent/linux/engineering";

    /// Calls that may wait for the main loop.
    static constexpr int kMostWaiting = 256;

    /// Size of a message, header included.
    static constexpr gsize kMostBytes = 64 * 1024;

    /// Begins to bound the calls on `pConnection`, which outlives this object's use and whose calls the default main
    /// context serves. Called once.
    void Watch(GDBusConnection* pConnection);

    /// Answers every further call with org.freedesktop.DBus.Error.ServiceUnknown: the main loop has ended. Any thread.
    void Stop() { m_bStopped = true; }

private:
    static GDBusMessage* OnMessage(GDBusConnection* pConnection, GDBusMessage* pMessage, gboolean bIncoming,
                                   gpointer pSelf);
    bool Admit(GDBusConnection* pConnection, GDBusMessage* pCall);
    void CountUntilServed();

    std::atomic<int> m_nWaiting = 0;
    std::atomic<bool> m_bStopped = false;
};

/// Closes the socket of a bus connection together with the connection. GDBus alone keeps the socket, and the bus keeps
/// the names, for as long as anything holds the connection. That is so even after GDBus has given the connection up
/// because of a message that the bus daemon accepts and GDBus cannot decode. Takes effect with the next message.
/// @param pConnection lives as long as the process
/// @param pOnClosed called once, when the socket is about to be closed, on GDBus's own thread, which does not wait for
/// the main loop
void CloseSocketWith(GDBusConnection* pConnection, void (*pOnClosed)());
