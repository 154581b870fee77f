#pragma once

#include <cstdint>
#include <string_view>

#include "protocol/catalogue/Model.h"

namespace protocol::catalogue {

/// Reads a value of a numeric field as a user writes it: decimal, 0x hexadecimal, a choice's name, or a number with the
/// unit of the field's scale. The written number must be in the range before it is scaled. Throws UserError.
std::int64_t parseNumber(const Field& field, std::string_view text);

/// @returns what is wrong with `number` as a value of `field`: "expected 0 to 3, got 12"; empty for a good one.
std::string numberProblem(const Field& field, std::int64_t number);

/// Reads a whole number, decimal or 0x hexadecimal, with an optional minus sign.
/// @returns false if `text` is not one. A number that an int64 cannot hold becomes the nearest one that it can.
bool parseInteger(std::string_view text, std::int64_t& number);

}  // namespace protocol::catalogue
