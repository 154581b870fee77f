#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "station/identity/Record.h"

namespace station::identity {

/// Values of one record that a station may give, in ascending order: a text with a number of fixed width in it, or a
/// block of addresses.
struct ValueRange {
    const Record* record = nullptr;
    std::string before;  ///< what stands before the number
    std::string after;
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    int width = 0;  ///< digits
    int base = 10;

    std::string value(std::uint64_t number) const;

    /// @returns whether `value` belongs to it, and its number.
    bool contains(std::string_view value, std::uint64_t& number) const;
};

/// Reads "factory-serial=SN{000100..000999}". Throws std::invalid_argument.
ValueRange parseRange(Records records, std::string_view text);

/// Reads "carplay-mac=001A7D000000/24": the addresses whose first 24 bits are these; at least 8 bits, and no multicast
/// addresses. Throws std::invalid_argument.
ValueRange parseMacBlock(Records records, std::string_view text);

}  // namespace station::identity
