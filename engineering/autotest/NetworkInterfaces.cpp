#include "engineering/autotest/NetworkInterfaces.h"

#include <net/if.h>
#include <netinet/in.h>
#include <netpacket/packet.h>
#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include "engineering/base/Log.h"

InterfaceList g_InterfaceList = {getifaddrs, freeifaddrs};

namespace {

constexpr const char* kWirelessPrefix = "wlan";
constexpr const char* kUsbPrefix = "usb0";
constexpr std::size_t kPrefixLength = 4;

struct Interfaces {
    int nResult = 0;
    std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> list{nullptr, g_InterfaceList.free};
};

Interfaces ListInterfaces()
{
    Interfaces interfaces;
    ifaddrs* pList = nullptr;
    interfaces.nResult = g_InterfaceList.get(&pList);
    interfaces.list.reset(pList);
    return interfaces;
}

/// @returns the entry's address if its interface is up and is not a loopback, else null.
const sockaddr* UsableAddress(const ifaddrs& entry, int nFamily)
{
    const bool bUsable = (entry.ifa_flags & IFF_UP) != 0 && (entry.ifa_flags & IFF_LOOPBACK) == 0;
    if (!bUsable || entry.ifa_addr == nullptr || entry.ifa_addr->sa_family != nFamily)
        return nullptr;
    return entry.ifa_addr;
}

std::string Dotted(const sockaddr* pAddress)
{
    sockaddr_in address{};
    std::memcpy(&address, pAddress, sizeof address);
    unsigned char bytes[4];
    std::memcpy(bytes, &address.sin_addr, sizeof bytes);
    char text[16];
    std::snprintf(text, sizeof text, "%d.%d.%d.%d", bytes[0], bytes[1], bytes[2], bytes[3]);
    return text;
}

}  // namespace

std::string GetWiFiInterfaceIP()
{
    const Interfaces interfaces = ListInterfaces();
    if (interfaces.nResult != 0) {
        KYR_LOG_ERROR("getifaddrs failed err(%d) %s", interfaces.nResult, strerror(interfaces.nResult));
        return {};
    }
    for (const ifaddrs* pEntry = interfaces.list.get(); pEntry != nullptr; pEntry = pEntry->ifa_next) {
        const sockaddr* const pAddress = UsableAddress(*pEntry, AF_INET);
        if (pAddress != nullptr && strncasecmp(pEntry->ifa_name, kWirelessPrefix, kPrefixLength) == 0)
            return Dotted(pAddress);
    }
    return {};
}

int FindUsbInterfaceMac(std::array<unsigned char, 6>& mac)
{
    const Interfaces interfaces = ListInterfaces();
    for (const ifaddrs* pEntry = interfaces.list.get(); pEntry != nullptr; pEntry = pEntry->ifa_next) {
        const sockaddr* const pAddress = UsableAddress(*pEntry, AF_PACKET);
        if (pAddress == nullptr || strncmp(pEntry->ifa_name, kUsbPrefix, kPrefixLength) != 0)
            continue;
        sockaddr_ll address{};
        std::memcpy(&address, pAddress, sizeof address);
        if (address.sll_halen != mac.size())
            continue;
        std::copy_n(std::begin(address.sll_addr), mac.size(), mac.begin());
        break;
    }
    return interfaces.nResult;
}
