#pragma once

#include <gio/gio.h>

/// Closes the socket of a bus connection together with the connection. GDBus alone keeps the socket, and the bus keeps
/// the names, for as long as anything holds the connection. That is so even after GDBus has given the connection up
/// because of a message that the bus daemon accepts and GDBus cannot decode. Takes effect with the next message.
/// @param pConnection lives as long as the process
/// @param pOnClosed called once, when the socket is about to be closed, on GDBus's own thread, which does not wait for
/// the main loop
void CloseSocketWith(GDBusConnection* pConnection, void (*pOnClosed)());
