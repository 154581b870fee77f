#pragma once

#include <ifaddrs.h>

#include <array>
#include <string>

/// The functions that list the interfaces and free the list: getifaddrs() and freeifaddrs(). Tests replace them.
struct InterfaceList {
    int (*get)(ifaddrs** list);
    void (*free)(ifaddrs* list);
};
extern InterfaceList g_InterfaceList;

/// @returns the IPv4 address of the first wireless interface that is up, as dotted text; empty without one.
std::string GetWiFiInterfaceIP();

/// Fills in the hardware address of the first USB network interface ("usb0...") that is up. Leaves `mac` unchanged
/// if there is none.
/// @returns the result of getifaddrs().
int FindUsbInterfaceMac(std::array<unsigned char, 6>& mac);
