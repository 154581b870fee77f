#pragma once

#include <string>

#include "protocol/catalogue/Codec.h"

namespace station::plan {

/// Reads a value as a user writes it for `field`: 8750, "87.5MHz", "on", "HeadUnit", "00 1A 7D". Empty text is a value
/// of every text and of bytes.
/// Throws protocol::UserError, which says what is wrong and what would be right.
protocol::catalogue::Value literal(const protocol::catalogue::Field& field, const std::string& written);

/// @returns whether a frame's value is the expected one; hexadecimal text in either case.
bool same(const protocol::catalogue::Field& field, const protocol::catalogue::Value& one,
          const protocol::catalogue::Value& other);

/// @returns the value as a user would write it for a parameter: a choice's name stays a number.
std::string written(const protocol::catalogue::DecodedField& field);

}  // namespace station::plan
