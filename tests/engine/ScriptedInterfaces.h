#pragma once

#include <netinet/in.h>
#include <netpacket/packet.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "engineering/autotest/NetworkInterfaces.h"

/// While an object exists, the service finds these network interfaces in place of the machine's own. Use one object at
/// a time, from one thread.
class ScriptedInterfaces
{
public:
    /// No interface at all.
    ScriptedInterfaces();
    ~ScriptedInterfaces();

    ScriptedInterfaces(const ScriptedInterfaces&) = delete;
    ScriptedInterfaces& operator=(const ScriptedInterfaces&) = delete;

    /// Appends an interface with an address, which has as many bytes as its family takes.
    /// @param flags IFF_UP and others
    void add(const std::string& name, unsigned int flags, int family, const std::vector<std::uint8_t>& address);

    /// Appends an interface that has no address at all.
    void addWithoutAddress(const std::string& name, unsigned int flags);

    /// Makes the listing return `result`.
    /// @param withList whether it fills in a list all the same
    void fail(int result, bool withList);

    /// @returns how many lists were returned and how many were freed.
    int listed() const { return listed_; }
    int freed() const { return freed_; }

private:
    struct Interface {
        std::string name;
        unsigned int flags = 0;
        bool hasAddress = false;
        sockaddr_storage address{};
    };

    static int get(ifaddrs** list);
    static void free(ifaddrs* list);
    ifaddrs* link();

    static ScriptedInterfaces* current_;

    const InterfaceList machine_;
    std::vector<Interface> interfaces_;
    std::vector<ifaddrs> entries_;
    int result_ = 0;
    bool withList_ = true;
    int listed_ = 0;
    int freed_ = 0;
};
