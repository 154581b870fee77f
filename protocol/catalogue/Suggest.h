#pragma once

#include <span>
#include <string>
#include <string_view>

#include "protocol/catalogue/Model.h"

/// Texts for a reader who has mistyped a name.
namespace protocol::catalogue {

/// @returns the word that `typed` was probably meant to be; empty when none is near.
std::string_view nearest(std::string_view typed, std::span<const std::string_view> words);

/// @returns "; did you mean 'up'?", to be put behind a complaint; empty when no word is near.
std::string didYouMean(std::string_view typed, std::span<const std::string_view> words);

/// @returns what to tell somebody who wrote `key` where a GROUP.COMMAND stands, in one line:
/// "'tuner.pla' is not a command; did you mean 'tuner.play'?"
std::string noSuchCommand(Groups groups, std::string_view key);

}  // namespace protocol::catalogue
