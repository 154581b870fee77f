#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "platform/bench/State.h"

namespace bench {

/// @returns the built-in values of kStateRows as one document.
nlohmann::json builtInState();

/// Checks a whole document.
/// @param candidate the document that will replace `current`
/// @throws StateError for the first value that does not fit: UnknownPath if the state does not have its path, else
/// InvalidValue.
void checkState(const nlohmann::json& candidate, const nlohmann::json& current);

/// @returns the value at `path`.
/// @throws StateError (UnknownPath)
const nlohmann::json& findValue(const nlohmann::json& document, const std::string& path);

/// @returns the value at `path`, to be replaced. Adds null if `path` is a new key of an open object.
/// @throws StateError (UnknownPath)
nlohmann::json& findOrAddValue(nlohmann::json& document, const std::string& path);

}  // namespace bench
