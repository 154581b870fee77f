#pragma once

#include <filesystem>
#include <string>

namespace runtime {

/// Sets what KYR_GetRootPath() returns: `directory` made absolute, without a slash at its end; empty (also for "/"):
/// the real root. To be called before the service starts.
void setRoot(const std::string& directory);

/// Makes the directories that a head unit has, and the default persistent-store file of the Bluetooth controller,
/// below `root`; what exists is left as it is, and an empty root altogether. What cannot be made is reported in one
/// line.
/// @returns whether everything is there.
bool makeHeadUnitDirectories(const std::string& root);

/// Makes the directory for what exists only while the programs of the bench run: $XDG_RUNTIME_DIR/engineering, or
/// /tmp/engineering-$UID where that is not set. Nobody but its owner can enter it.
/// @returns its absolute path.
/// @throws std::runtime_error with one line when it cannot be had, or when what is there is no directory of this user.
std::filesystem::path makeRunDirectory();

}  // namespace runtime
