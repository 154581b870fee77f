#pragma once

#include <engineering_dbus.h>
#include <gio/gio.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

/// Bounds what GDBus keeps in memory. GDBus queues every signal until the bus reads it, without a limit: a station at
/// full speed and a slow or stopped bus would fill the memory. The backlog counts the queued signals. It slows the
/// sender while the bus is slower, and drops signals while the bus reads nothing.
class BusBacklog
{
public:
    /// Signals that may be queued; each takes some 2 kB in GDBus.
    static constexpr int kLimit = 1024;

    /// How long a sender waits for the bus to read a signal before the bus counts as stopped. Including the time for
    /// the frame itself, the station waits less than a tenth of a second.
    static constexpr std::chrono::milliseconds kPatience{80};

    /// Begins to count the signals of `pConnection`, which outlives this object's use. Called once.
    void Watch(GDBusConnection* pConnection);

    /// Reserves a place for one signal on the watched connection; any thread but GDBus's own.
    /// @returns false if the caller must drop the signal because the bus reads none.
    bool Admit();

private:
    static GDBusMessage* OnMessage(GDBusConnection* pConnection, GDBusMessage* pMessage, gboolean bIncoming,
                                   gpointer pSelf);
    void OnTaken();

    std::mutex m_mutex;
    std::condition_variable m_taken;
    GDBusConnection* m_pConnection = nullptr;  // guarded by m_mutex
    int m_nQueued = 0;                         // guarded by m_mutex
    unsigned int m_nTaken = 0;                 // guarded by m_mutex
    unsigned int m_nDropped = 0;               // guarded by m_mutex
    bool m_bStopped = false;                   // guarded by m_mutex
};

// What the emit functions (Outlets.h) share with the bridge, which brings the bus.

/// The exported object; null until the bus has been acquired, then set for the life of the process.
extern std::atomic<ComZentLinuxEngineering*> pSkeleton;

/// Counts the signals of `pSkeleton`.
extern BusBacklog& g_Backlog;

/// @returns a new floating variant of type "v" that holds `length` bytes as an array "ay"; an empty one for 0 and less.
GVariant* gvariant_data_build(const unsigned char* bytes, int length);
