#pragma once

#include <re2/re2.h>

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "station/SerialRecord.h"
#include "station/identity/Record.h"

namespace station::identity {

/// What a station knows about the values of its units.
struct UnitRules {
    SerialRecord serial = {};
    /// What a record's whole value must match, by name of the record.
    std::map<std::string, std::shared_ptr<const re2::RE2>, std::less<>> patterns = {};

    /// @returns whether the value, as a unit holds it, tells no unit from another: a placeholder, erased memory (FF
    /// bytes), an address that no device has.
    bool isPlaceholder(const Record& record, std::string_view value) const;

    /// @returns what is wrong with a value that is to be written, in one line with the record's name; empty for
    /// nothing.
    std::string objection(const Record& record, std::string_view value) const;
};

/// @returns why no device may have this address: multicast, all zero, all F. Empty for one that it may have, and for
/// what is not an address.
std::string reservedAddress(const Record& record, std::string_view value);

/// @returns why the unit would keep another value of a unique record than the one that is sent, of which it takes the
/// first 12 characters of an address and what stands behind the last line end; empty when it keeps this one.
std::string mangled(const Record& record, std::string_view value);

/// What stands before the digits of bytes that are not text.
inline constexpr std::string_view kHex = "hex:";

/// @returns the value as the registry keeps it: an address as 12 capital digits; other bytes as they are when they are
/// printable UTF-8, else "hex:" and their digits. Different values have different texts.
std::string registryText(const Record& record, std::string_view value);

}  // namespace station::identity
