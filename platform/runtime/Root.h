#pragma once

#include <filesystem>
#include <string>

namespace runtime {

/// Sets the result of KYR_GetRootPath(): `directory` as an absolute path without a slash at its end. An empty directory
/// or "/" is the real root. To be called before the service starts.
void setRoot(const std::string& directory);

/// Makes the directories of a head unit below `root`, and the default persistent-store file of the Bluetooth
/// controller. Leaves existing files, and an empty root, as they are. Reports a failure below the root in one line: the
/// service serves with a partition that is full or damaged.
/// @returns whether all of them exist.
/// @throws protocol::StorageError if the root itself cannot be made.
bool makeHeadUnitDirectories(const std::string& root);

/// Makes the run directory of the bench: $XDG_RUNTIME_DIR/engineering, or /tmp/engineering-$UID if the variable is not
/// set. Only its owner can enter it.
/// @returns its absolute path.
/// @throws std::runtime_error if it cannot be made, or if the path is not a directory of this user.
std::filesystem::path makeRunDirectory();

}  // namespace runtime
