#pragma once

#include <span>
#include <string>
#include <vector>

#include "protocol/catalogue/Codec.h"

namespace protocol::catalogue {

/// Parameter bytes, taken apart by a list of fields.
struct FieldValues {
    std::vector<DecodedField> fields;
    /// Bytes beyond the fields, or of a field that was cut short.
    std::vector<std::uint8_t> rest;
    /// What does not fit, one line each; bytes left over behind whole fields are no problem here.
    std::vector<std::string> problems;
};

/// Never fails, whatever the bytes.
FieldValues decodeFields(std::span<const Field> fields, Bytes params);

}  // namespace protocol::catalogue
