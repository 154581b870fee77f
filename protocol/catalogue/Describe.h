#pragma once

#include <string>

#include "protocol/catalogue/Model.h"

namespace protocol::catalogue {

/// @returns the legal values of `field` in a few words: "a number from 0 to 65535, or in MHz on FM",
/// "one of down (0), up (1)", "12 hexadecimal digits".
std::string describe(const Field& field);

/// @returns "0 to 3"; "12" if both ends are equal.
std::string describeRange(const Field& field);

/// @returns "down (0), up (1)"; empty for a field without choices.
std::string describeChoices(const Field& field);

/// @returns `number` × `factor` without the noise of binary fractions: "87.5" for 8750 × 0.01.
std::string scaled(std::int64_t number, double factor);

}  // namespace protocol::catalogue
