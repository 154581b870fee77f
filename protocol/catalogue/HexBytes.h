#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/Frame.h"

namespace protocol::catalogue {

/// Reads bytes as people write them: "00 1A 7D", "00:1A:7D", "0x00,0x1A", "001A7D". Each piece between
/// separators is one digit or an even number of digits, in upper or lower case.
/// @returns nothing when `text` is anything else; no bytes for an empty text.
std::optional<std::vector<std::uint8_t>> parseHexBytes(std::string_view text);

/// Reads a byte: one or two hexadecimal digits, with or without 0x before them.
/// @returns nothing when `text` is anything else.
std::optional<std::uint8_t> parseHexByte(std::string_view text);

/// @returns a frame as users read it, `8F 00 [01]`: group, command, and the parameters in brackets.
std::string formatFrame(const Frame& frame);

/// @returns "00 1A 7D", with what is to stand between two bytes.
std::string formatHexBytes(Bytes bytes, std::string_view separator = " ");

}  // namespace protocol::catalogue
