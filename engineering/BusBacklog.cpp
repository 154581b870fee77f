#include "engineering/BusBacklog.h"

#include <algorithm>

#include "engineering/Log.h"

namespace {

constexpr const char* kInterface = "com.zent.linux.engineering";

}  // namespace

void BusBacklog::Watch(GDBusConnection* pConnection)
{
    {
        const std::lock_guard lock(m_mutex);
        m_pConnection = pConnection;
    }
    g_dbus_connection_add_filter(pConnection, OnMessage, this, nullptr);
}

bool BusBacklog::Admit()
{
    std::unique_lock lock(m_mutex);
    // A connection that is closed takes no signal and so queues none.
    if (m_pConnection == nullptr || g_dbus_connection_is_closed(m_pConnection))
        return true;
    while (!m_bStopped && m_nQueued >= kLimit) {
        const unsigned int nTaken = m_nTaken;
        if (m_taken.wait_for(lock, kPatience, [&] { return m_nTaken != nTaken; }))
            continue;
        m_bStopped = true;
        m_nDropped = 0;
        lock.unlock();
        KYR_LOG_WARN("D-Bus takes no signals, they are dropped until it does");
        lock.lock();
    }
    if (m_bStopped) {
        ++m_nDropped;
        return false;
    }
    ++m_nQueued;
    return true;
}

// Runs on GDBus's own thread, for every message of the connection, just before an outgoing one is written.
GDBusMessage* BusBacklog::OnMessage(GDBusConnection*, GDBusMessage* pMessage, gboolean bIncoming, gpointer pSelf)
{
    // The connection is the process's shared one: others may send on it, too.
    if (!bIncoming && g_dbus_message_get_message_type(pMessage) == G_DBUS_MESSAGE_TYPE_SIGNAL &&
        g_strcmp0(g_dbus_message_get_interface(pMessage), kInterface) == 0)
        static_cast<BusBacklog*>(pSelf)->OnTaken();
    return pMessage;
}

void BusBacklog::OnTaken()
{
    bool bGoesOn = false;
    unsigned int nDropped = 0;
    {
        const std::lock_guard lock(m_mutex);
        m_nQueued = std::max(m_nQueued - 1, 0);  // one may have been sent before the counting began
        ++m_nTaken;
        if (m_bStopped && m_nQueued <= kLimit / 2) {
            m_bStopped = false;
            bGoesOn = true;
            nDropped = m_nDropped;
        }
    }
    m_taken.notify_all();
    if (bGoesOn)
        KYR_LOG_WARN("D-Bus takes signals again, %u were dropped", nDropped);
}
