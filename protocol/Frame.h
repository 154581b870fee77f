#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace protocol {

using Bytes = std::span<const std::uint8_t>;

// The frame, byte by byte (n = number of parameter bytes):
//
//     2A A2   header
//     00      reserved: 0 when sent, ignored when received
//     L       length: n + 2, counts cmd_one, cmd_two and the parameters
//     cmd_one command group; in what the head unit sends, the group with bit 7 set
//     cmd_two command within the group
//     ...     n parameter bytes
//     00      padding, only when n is odd
//     CC CC   checksum, high byte first: the two's complement of the sum of L, cmd_one, cmd_two and the parameters
inline constexpr std::uint8_t kHeader1 = 0x2A;
inline constexpr std::uint8_t kHeader2 = 0xA2;
inline constexpr std::size_t kLengthOffset = 3;
inline constexpr std::size_t kCmdOneOffset = 4;
inline constexpr std::size_t kCmdTwoOffset = 5;
inline constexpr std::size_t kParamsOffset = 6;
inline constexpr std::size_t kChecksumSize = 2;

/// The longest frame that the head unit can send: the platform's carrier has a length of 8 bits.
inline constexpr std::size_t kMaxFrame = 255;

/// The most parameter bytes with which a frame stays within kMaxFrame.
inline constexpr std::size_t kMaxParams = 246;

/// The most parameter bytes that a station may send, and the length of their frame. The receiver treats a length byte
/// of 255 differently.
inline constexpr std::size_t kMaxStationParams = 252;
inline constexpr std::size_t kMaxStationFrame = 260;

/// Marks the command group of a frame that the head unit sends.
inline constexpr std::uint8_t kReplyBit = 0x80;

/// A frame's content.
struct Frame {
    std::uint8_t cmdOne = 0;
    std::uint8_t cmdTwo = 0;
    std::vector<std::uint8_t> params;

    bool operator==(const Frame&) const = default;
};

/// @returns the length in bytes of a frame with `paramCount` parameter bytes, also beyond kMaxFrame.
constexpr std::size_t frameLength(std::size_t paramCount)
{
    return kParamsOffset + paramCount + paramCount % 2 + kChecksumSize;
}

/// @returns the sum of the bytes. Inline and plain, so the compiler makes vector code of it.
inline std::uint32_t sumOf(Bytes bytes)
{
    std::uint32_t sum = 0;
    for (const std::uint8_t byte : bytes)
        sum += byte;
    return sum;
}

/// @returns the value that brings the sum of the length byte, both command bytes and `params` to 0 modulo 65536.
std::uint16_t checksum(std::uint8_t length, std::uint8_t cmdOne, std::uint8_t cmdTwo, Bytes params);

/// Room for a frame that the head unit sends, and for one that a station sends.
using FrameBuffer = std::array<std::uint8_t, kMaxFrame>;
using StationFrameBuffer = std::array<std::uint8_t, kMaxStationFrame>;

/// Writes the frame to the beginning of `out`, and zeros after it.
/// @returns the frame's length. Returns 0, and fills `out` with zeros, if `out` is too short or the length byte would
/// be 255 or more.
std::size_t encode(std::span<std::uint8_t> out, std::uint8_t cmdOne, std::uint8_t cmdTwo, Bytes params);

// The wire has numbers of several bytes with the highest byte first. Only these two functions depend on that.

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
