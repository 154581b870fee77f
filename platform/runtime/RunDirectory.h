#pragma once

#include <filesystem>

namespace runtime {

/// Makes the directory for what exists only while the programs of the bench run: $XDG_RUNTIME_DIR/engineering, or
/// /tmp/engineering-$UID where that is not set. Nobody but its owner can enter it.
/// @returns its absolute path.
/// @throws std::runtime_error with one line when it cannot be had, or when what is there is no directory of this user.
std::filesystem::path makeRunDirectory();

}  // namespace runtime
