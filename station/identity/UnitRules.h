#pragma once

#include <re2/re2.h>

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "station/SerialRecord.h"
#include "station/identity/IdentityRecord.h"

namespace station::identity {

/// The station's rules for the values of its units.
struct UnitRules {
    SerialRecord serial = {};
    /// Regular expressions that whole values must match, by name of the record.
    std::map<std::string, std::shared_ptr<const re2::RE2>, std::less<>> patterns = {};

    /// @returns whether the value, as a unit holds it, identifies no unit: a placeholder, erased memory (FF bytes), or
    /// an address that is all zero or all F.
    bool isPlaceholder(const Record& record, std::string_view value) const;

    /// @returns why a value must not be written, in one line with the record's name; empty if it may.
    std::string objection(const Record& record, std::string_view value) const;
};

/// @returns why no device may have this address: multicast, all zero, all F. Empty for other addresses and other
/// records.
std::string reservedAddress(const Record& record, std::string_view value);

/// @returns why the unit would store another value than the one sent; empty if it stores this one. A unit takes the
/// first 12 characters of an address, and only the characters after the last line end of a unique value.
std::string mangled(const Record& record, std::string_view value);

/// Marks the digits of bytes that are not text.
inline constexpr std::string_view kHex = "hex:";

/// @returns the value as the registry keeps it: an address as 12 capital digits, printable UTF-8 unchanged, other
/// bytes as "hex:" and their digits. Different values have different texts.
std::string registryText(const Record& record, std::string_view value);

}  // namespace station::identity
