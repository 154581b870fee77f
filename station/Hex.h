#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "protocol/Frame.h"

namespace station {

/// Reads a byte as people write it: one or two hexadecimal digits, with or without 0x before them.
/// @returns nothing when `text` is anything else.
std::optional<std::uint8_t> parseByte(std::string_view text);

/// @returns the frame as people read it, `8F 00 [01]`: group, command, and the parameters in brackets.
std::string format(const protocol::Frame& frame);

}  // namespace station
