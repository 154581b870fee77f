#include "engineering/BusSocket.h"

namespace {

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

GSourceFuncs g_Functions = {IsClosed, nullptr, CloseSocket, nullptr, nullptr, nullptr};

// Filters run on GDBus's own thread. That thread checks the source after each of its steps.
GDBusMessage* OnMessage(GDBusConnection* pConnection, GDBusMessage* pMessage, gboolean, gpointer pOnClosed)
{
    constexpr const char* kKey = "engineering-closed-source";
    if (g_object_get_data(G_OBJECT(pConnection), kKey) != nullptr)
        return pMessage;
    GSource* const pSource = g_source_new(&g_Functions, sizeof(ClosedSource));
    auto* const pClosed = reinterpret_cast<ClosedSource*>(pSource);
    pClosed->pConnection = pConnection;
    pClosed->pOnClosed = reinterpret_cast<void (*)()>(pOnClosed);
    g_source_attach(pSource, g_main_context_get_thread_default());
    g_object_set_data_full(G_OBJECT(pConnection), kKey, pSource,
                           [](gpointer pData) { g_source_unref(static_cast<GSource*>(pData)); });
    return pMessage;
}

}  // namespace

void CloseSocketWith(GDBusConnection* pConnection, void (*pOnClosed)())
{
    g_dbus_connection_add_filter(pConnection, OnMessage, reinterpret_cast<gpointer>(pOnClosed), nullptr);
}
