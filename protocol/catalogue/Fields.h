#pragma once

#include <span>
#include <string>
#include <vector>

#include "protocol/catalogue/Codec.h"

namespace protocol::catalogue {

/// Parameter bytes, taken apart by a list of fields.
struct FieldValues {
    std::vector<DecodedField> fields;
    /// Bytes beyond the fields, or of an incomplete field.
    std::vector<std::uint8_t> rest;
    /// One line for each field that does not fit. Bytes after the last field are not a problem here.
    std::vector<std::string> problems;
    /// One line for each legal value that is unusual.
    std::vector<std::string> remarks;
};

/// Never fails.
FieldValues decodeFields(std::span<const Field> fields, Bytes params);

}  // namespace protocol::catalogue
