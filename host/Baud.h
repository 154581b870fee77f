#pragma once

#include <termios.h>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace host {

/// The rates of a serial line in bits per second, and the numbers by which termios knows them.
inline constexpr auto kBauds = std::to_array<std::pair<unsigned, speed_t>>({
    {1200, B1200},       {2400, B2400},       {4800, B4800},       {9600, B9600},       {19200, B19200},
    {38400, B38400},     {57600, B57600},     {115200, B115200},   {230400, B230400},   {460800, B460800},
    {500000, B500000},   {576000, B576000},   {921600, B921600},   {1000000, B1000000}, {1152000, B1152000},
    {1500000, B1500000}, {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000}, {3500000, B3500000},
    {4000000, B4000000},
});

inline constexpr unsigned kDefaultBaud = 115200;

/// @returns the number by which termios knows a rate; nothing for a rate that no line has.
inline std::optional<speed_t> speedOf(unsigned baud)
{
    const auto found = std::ranges::find(kBauds, baud, &std::pair<unsigned, speed_t>::first);
    return found == kBauds.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace host
