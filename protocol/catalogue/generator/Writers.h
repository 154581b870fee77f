#pragma once

#include <string>
#include <string_view>

#include "protocol/catalogue/Model.h"

/// What is made from the catalogue.
namespace protocol::catalogue::generator {

/// @returns the C++ source that defines groups() and hash().
/// @param hash SHA-256 of the catalogue's file.
std::string writeCpp(Groups groups, std::string_view hash);

/// @returns the groups' tables, as the sections of a Markdown page.
std::string writeMarkdown(Groups groups);

/// @returns the Wireshark dissector: `code`, a Lua script, with the line `local groups = {}` replaced by the groups.
/// Throws std::runtime_error when the script has no such line.
std::string writeLua(Groups groups, std::string_view code);

}  // namespace protocol::catalogue::generator
