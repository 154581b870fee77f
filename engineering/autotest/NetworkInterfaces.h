#pragma once

#include <ifaddrs.h>

#include <array>
#include <string>

/// How the interfaces are listed and the list is freed: getifaddrs() and freeifaddrs(), which tests replace.
struct InterfaceList {
    int (*get)(ifaddrs** list);
    void (*free)(ifaddrs* list);
};
extern InterfaceList g_InterfaceList;

/// @returns the IPv4 address of the first wireless interface that is up, as dotted text; empty when there is none.
std::string GetWiFiInterfaceIP();

/// Fills the hardware address of the first USB network interface ("usb0...") that is up; leaves `mac` as it is when
/// there is none.
/// @returns what getifaddrs() returned.
int FindUsbInterfaceMac(std::array<unsigned char, 6>& mac);
