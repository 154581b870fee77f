#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace station {

/// Where a unit keeps *the* serial number by which runs and the registry know it.
struct SerialRecord {
    /// Of the catalogue's identity group: `identity.NAME` reads it, `identity.write-NAME` writes it.
    std::string name = "hu-serial";
    /// Serial numbers that mean "none".
    std::vector<std::string> placeholders = {"", "00000000"};

    /// @returns whether a unit with this serial number has none: a placeholder, or FF bytes, which are erased memory.
    bool isNone(std::string_view serial) const
    {
        return std::ranges::find(placeholders, serial) != placeholders.end() ||
               std::ranges::all_of(serial, [](char c) { return c == '\xFF'; });
    }
};

}  // namespace station
