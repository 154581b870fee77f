#pragma once

#include <cstdint>
#include <string_view>

#include "protocol/catalogue/Model.h"

namespace protocol::catalogue {

/// Reads a value of a numeric field as a user writes it: decimal, 0x hexadecimal, a choice's name, or a number with the
/// unit of the field's scale. It is compared with the range as it was written, before it is scaled.
/// Throws UserError, whose text names the value and what would be right.
std::int64_t parseNumber(const Field& field, std::string_view text);

/// @returns what is wrong with `number` as a value of `field`: "12 is out of range 0 to 3"; empty when nothing is.
std::string numberProblem(const Field& field, std::int64_t number);

/// Reads a whole number, decimal or 0x hexadecimal, with an optional minus sign.
/// @returns false when `text` is none. A number that an int64 cannot hold becomes the nearest one that it can.
bool parseInteger(std::string_view text, std::int64_t& number);

}  // namespace protocol::catalogue
