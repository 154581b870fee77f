#include "tests/engine/ScriptedInterfaces.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

ScriptedInterfaces* ScriptedInterfaces::current_ = nullptr;

ScriptedInterfaces::ScriptedInterfaces() : machine_(g_InterfaceList)
{
    current_ = this;
    g_InterfaceList = {get, free};
}

ScriptedInterfaces::~ScriptedInterfaces()
{
    g_InterfaceList = machine_;
    current_ = nullptr;
}

void ScriptedInterfaces::add(const std::string& name, unsigned int flags, int family,
                             const std::vector<std::uint8_t>& address)
{
    Interface& added = interfaces_.emplace_back(Interface{name, flags, true, {}});
    if (family == AF_INET) {
        sockaddr_in inet{};
        inet.sin_family = AF_INET;
        std::memcpy(&inet.sin_addr, address.data(), std::min(address.size(), sizeof inet.sin_addr));
        std::memcpy(&added.address, &inet, sizeof inet);
    } else if (family == AF_INET6) {
        sockaddr_in6 inet6{};
        inet6.sin6_family = AF_INET6;
        std::memcpy(&inet6.sin6_addr, address.data(), std::min(address.size(), sizeof inet6.sin6_addr));
        std::memcpy(&added.address, &inet6, sizeof inet6);
    } else if (family == AF_PACKET) {
        sockaddr_ll hardware{};
        hardware.sll_family = AF_PACKET;
        hardware.sll_halen = static_cast<unsigned char>(address.size());
        std::memcpy(hardware.sll_addr, address.data(), std::min(address.size(), sizeof hardware.sll_addr));
        std::memcpy(&added.address, &hardware, sizeof hardware);
    } else {
        throw std::invalid_argument("no such family");
    }
}

void ScriptedInterfaces::addWithoutAddress(const std::string& name, unsigned int flags)
{
    interfaces_.push_back({name, flags, false, {}});
}

void ScriptedInterfaces::fail(int result, bool withList)
{
    result_ = result;
    withList_ = withList;
}

int ScriptedInterfaces::get(ifaddrs** list)
{
    if (current_->withList_)
        *list = current_->link();
    return current_->result_;
}

void ScriptedInterfaces::free(ifaddrs*)
{
    ++current_->freed_;
}

ifaddrs* ScriptedInterfaces::link()
{
    if (interfaces_.empty())
        return nullptr;
    ++listed_;
    entries_.assign(interfaces_.size(), {});
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        entries_[i].ifa_next = i + 1 < entries_.size() ? &entries_[i + 1] : nullptr;
        entries_[i].ifa_name = interfaces_[i].name.data();
        entries_[i].ifa_flags = interfaces_[i].flags;
        entries_[i].ifa_addr =
            interfaces_[i].hasAddress ? reinterpret_cast<sockaddr*>(&interfaces_[i].address) : nullptr;
    }
    return entries_.data();
}
