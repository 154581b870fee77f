#pragma once

#include <string>
#include <string_view>

#include "protocol/catalogue/Model.h"

/// Texts for a reader who has mistyped a name.
namespace protocol::catalogue {

/// @returns one line for a user who wrote `key` in place of a GROUP.COMMAND:
/// "'tuner.pla' is not a command; did you mean 'tuner.play'?"
std::string noSuchCommand(Groups groups, std::string_view key);

}  // namespace protocol::catalogue
