#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace protocol {

// Numbers of several bytes stand on the wire with the highest byte first. These two functions are the only place that
// knows it.

/// @returns the number in `bytes`, up to four of them.
constexpr std::uint32_t fromBigEndian(std::span<const std::uint8_t> bytes)
{
    std::uint32_t number = 0;
    for (const std::uint8_t byte : bytes)
        number = number << 8 | byte;
    return number;
}

/// Appends the lowest `size` bytes of `number`, 1 to 4.
inline void appendBigEndian(std::vector<std::uint8_t>& bytes, std::uint32_t number, int size)
{
    for (int shift = 8 * (size - 1); shift >= 0; shift -= 8)
        bytes.push_back(static_cast<std::uint8_t>(number >> shift));
}

}  // namespace protocol
