#pragma once

#include <toml++/toml.h>
#include <optional>
#include <string>

namespace station::plan {

/// @returns the value as JSON; nothing when a date or a time is in it, which JSON does not have.
std::optional<std::string> jsonText(const toml::node& node);

}  // namespace station::plan
