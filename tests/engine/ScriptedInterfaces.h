#pragma once

#include <netinet/in.h>
#include <netpacket/packet.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "engineering/autotest/NetworkInterfaces.h"

/// The network interfaces that the service finds, while one of these is there: in place of the machine's own. One at a
/// time, from one thread.
class ScriptedInterfaces
{
public:
    /// No interface at all.
    ScriptedInterfaces();
    ~ScriptedInterfaces();

    ScriptedInterfaces(const ScriptedInterfaces&) = delete;
    ScriptedInterfaces& operator=(const ScriptedInterfaces&) = delete;

    /// Appends an interface with an address of a family: as many bytes as it has.
    /// @param flags IFF_UP and others
    void add(const std::string& name, unsigned int flags, int family, const std::vector<std::uint8_t>& address);

    /// Appends an interface that has no address at all.
    void addWithoutAddress(const std::string& name, unsigned int flags);

    /// Has the listing give `result`.
    /// @param withList whether there is a list all the same
    void fail(int result, bool withList);

    /// @returns how often a list was given out and how often one was given back.
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
