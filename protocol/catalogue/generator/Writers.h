#pragma once

#include <string>
#include <string_view>

#include "protocol/catalogue/Model.h"

/// What is made from the catalogue.
namespace protocol::catalogue::generator {

/// @returns the C++ source that defines groups() and hash().
/// @param hash SHA-256 of the catalogue's file.
std::string writeCpp(Groups groups, std::string_view hash);

/// @returns `page` with what stands between its two marker lines replaced by the groups' tables.
/// Throws std::runtime_error when the page has no such lines.
std::string writeMarkdown(Groups groups, std::string_view page);

/// @returns the Wireshark dissector: `code`, a Lua script, with the line `local groups = {}` replaced by the groups.
/// Throws std::runtime_error when the script has no such line.
std::string writeLua(Groups groups, std::string_view code);

/// @returns a field's type as the catalogue's file spells it.
std::string_view nameOf(Type type);

}  // namespace protocol::catalogue::generator
