#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "platform/bench/State.h"

namespace bench {

/// @returns the document of kStateRows' built-in values.
nlohmann::json builtInState();

/// Checks a whole document.
/// @param candidate the document that is to take the place of `current`
/// @throws StateError that names the first value that does not fit: UnknownPath for one that the state does not have,
/// else InvalidValue.
void checkState(const nlohmann::json& candidate, const nlohmann::json& current);

/// @returns the value at `path`.
/// @throws StateError (UnknownPath)
const nlohmann::json& findValue(const nlohmann::json& document, const std::string& path);

/// @returns the value at `path` for replacement; null is put there first where `path` is a new key of an open object.
/// @throws StateError (UnknownPath)
nlohmann::json& findOrAddValue(nlohmann::json& document, const std::string& path);

}  // namespace bench
