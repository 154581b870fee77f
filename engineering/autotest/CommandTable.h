#pragma once

#include <cstddef>
#include <span>

class KYRAutoTest;

/// A request's parameter bytes. They belong to the receive path and are gone after the command.
using Params = std::span<const unsigned char>;

/// One command of a group. The tables of these are the only list of what the station may ask.
struct Command {
    unsigned char code;     // cmd_two
    std::size_t minParams;  // with fewer parameter bytes the command is ignored
    const char* name;
    void (*action)(KYRAutoTest& engine, Params params);
};

/// @returns whether the codes of a table stand in ascending order, each once.
constexpr bool CodesAscend(std::span<const Command> commands)
{
    for (std::size_t i = 1; i < commands.size(); ++i) {
        if (commands[i - 1].code >= commands[i].code)
            return false;
    }
    return true;
}
