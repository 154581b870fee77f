#pragma once

#include <gio/gio.h>

/// Has the socket of a bus connection closed with it. By itself GDBus keeps the socket, and the bus the names, for as
/// long as anybody holds the connection: also after GDBus has given it up because of a message that the bus daemon lets
/// pass and GDBus cannot decode. Holds from the next message on that comes or goes.
/// @param pConnection lives as long as the process
/// @param pOnClosed called once, when the socket is about to be closed, on GDBus's own thread, which does not wait for
/// the main loop
void CloseSocketWith(GDBusConnection* pConnection, void (*pOnClosed)());
