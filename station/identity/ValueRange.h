#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "station/identity/IdentityRecord.h"

namespace station::identity {

/// Values of one record that a station may give, in ascending order: texts that contain a number of fixed width, or a
/// block of addresses.
struct ValueRange {
    const Record* record = nullptr;
    std::string before;  ///< text before the number
    std::string after;   ///< text after the number
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    int width = 0;  ///< digits
    int base = 10;

    std::string value(std::uint64_t number) const;

    /// @returns whether `value` belongs to the range, and puts its number into `number`.
    bool contains(std::string_view value, std::uint64_t& number) const;
};

/// Reads "factory-serial=SN{000100..000999}". Throws UserError.
ValueRange parseRange(Records records, std::string_view text);

/// Reads "carplay-mac=001A7D000000/24": the addresses whose first 24 bits are these; at least 8 bits, and no multicast
/// addresses. Throws UserError.
ValueRange parseMacBlock(Records records, std::string_view text);

}  // namespace station::identity
