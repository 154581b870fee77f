#include "engineering/BusConnection.h"

#include <gio/gunixfdlist.h>
#include <unistd.h>

namespace {

/// @returns the size in bytes; G_MAXSIZE if it is unknown.
gsize SizeOf(GDBusMessage* pMessage)
{
    gsize nSize = G_MAXSIZE;
    g_free(g_dbus_message_to_blob(pMessage, &nSize, G_DBUS_CAPABILITY_FLAGS_UNIX_FD_PASSING, nullptr));
    return nSize;
}

void CloseDescriptors(GDBusMessage* pMessage)
{
    GUnixFDList* const pList = g_dbus_message_get_unix_fd_list(pMessage);
    if (pList == nullptr)
        return;
    g_autofree gint* pDescriptors = g_unix_fd_list_steal_fds(pList, nullptr);
    for (const gint* p = pDescriptors; *p != -1; ++p)
        close(*p);
}

void Refuse(GDBusConnection* pConnection, GDBusMessage* pCall, const char* pError, const char* pReason)
{
    if ((g_dbus_message_get_flags(pCall) & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED) != 0)
        return;
    g_autoptr(GDBusMessage) pReply = g_dbus_message_new_method_error_literal(pCall, pError, pReason);
    g_dbus_connection_send_message(pConnection, pReply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
}

/// Is ready when its connection has closed.
struct ClosedSource {
    GSource source;  // first, so that a pointer to it also points to the whole
    GDBusConnection* pConnection;
    void (*pOnClosed)();
};

gboolean IsClosed(GSource* pSource, gint* pTimeout)
{
    *pTimeout = -1;
    return g_dbus_connection_is_closed(reinterpret_cast<ClosedSource*>(pSource)->pConnection);
}

gboolean CloseSocket(GSource* pSource, GSourceFunc, gpointer)
{
    const auto* const pClosed = reinterpret_cast<ClosedSource*>(pSource);
    pClosed->pOnClosed();
    g_io_stream_close(g_dbus_connection_get_stream(pClosed->pConnection), nullptr, nullptr);
    return G_SOURCE_REMOVE;
}

GSourceFuncs g_ClosedFunctions = {IsClosed, nullptr, CloseSocket, nullptr, nullptr, nullptr};

// Filters run on GDBus's own thread. That thread checks the source after each of its steps.
GDBusMessage* AddClosedSource(GDBusConnection* pConnection, GDBusMessage* pMessage, gboolean, gpointer pOnClosed)
{
    constexpr const char* kKey = "engineering-closed-source";
    if (g_object_get_data(G_OBJECT(pConnection), kKey) != nullptr)
        return pMessage;
    GSource* const pSource = g_source_new(&g_ClosedFunctions, sizeof(ClosedSource));
    auto* const pClosed = reinterpret_cast<ClosedSource*>(pSource);
    pClosed->pConnection = pConnection;
    pClosed->pOnClosed = reinterpret_cast<void (*)()>(pOnClosed);
    g_object_set_data_full(G_OBJECT(pConnection), kKey, pSource,
                           [](gpointer pData) { g_source_unref(static_cast<GSource*>(pData)); });
    g_source_attach(pSource, g_main_context_get_thread_default());
    return pMessage;
}

}  // namespace

void BusCalls::Watch(GDBusConnection* pConnection)
{
    g_dbus_connection_add_filter(pConnection, OnMessage, this, nullptr);
}

// Runs on GDBus's own thread, for every message of the connection, before GDBus hands an incoming one to the loop.
GDBusMessage* BusCalls::OnMessage(GDBusConnection* pConnection, GDBusMessage* pMessage, gboolean bIncoming,
                                  gpointer pSelf)
{
    if (!bIncoming || g_dbus_message_get_message_type(pMessage) != G_DBUS_MESSAGE_TYPE_METHOD_CALL ||
        g_strcmp0(g_dbus_message_get_path(pMessage), kObjectPath) != 0)
        return pMessage;
    if (!static_cast<BusCalls*>(pSelf)->Admit(pConnection, pMessage))
        g_clear_object(&pMessage);
    else
        CloseDescriptors(pMessage);
    return pMessage;
}

bool BusCalls::Admit(GDBusConnection* pConnection, GDBusMessage* pCall)
{
    constexpr const char* kLimitsExceeded = "org.freedesktop.DBus.Error.LimitsExceeded";
    if (m_bStopped) {
        Refuse(pConnection, pCall, "org.freedesktop.DBus.Error.ServiceUnknown", "The service has left the bus");
        return false;
    }
    if (SizeOf(pCall) > kMostBytes) {
        Refuse(pConnection, pCall, kLimitsExceeded, "Expected a message of at most 64 KiB, got a larger one");
        return false;
    }
    if (m_nWaiting >= kMostWaiting) {
        Refuse(pConnection, pCall, kLimitsExceeded, "Expected at most 256 calls at a time, got one more");
        return false;
    }
    CountUntilServed();
    return true;
}

void BusCalls::CountUntilServed()
{
    ++m_nWaiting;
    // The loop serves sources of one priority in the order of their arrival: this one, then GDBus's own.
    g_autoptr(GSource) pSource = g_idle_source_new();
    g_source_set_priority(pSource, G_PRIORITY_DEFAULT);
    g_source_set_callback(
        pSource,
        [](gpointer pSelf) -> gboolean {
            --static_cast<BusCalls*>(pSelf)->m_nWaiting;
            return G_SOURCE_REMOVE;
        },
        this, nullptr);
    g_source_attach(pSource, nullptr);
}

void CloseSocketWith(GDBusConnection* pConnection, void (*pOnClosed)())
{
    g_dbus_connection_add_filter(pConnection, AddClosedSource, reinterpret_cast<gpointer>(pOnClosed), nullptr);
}
