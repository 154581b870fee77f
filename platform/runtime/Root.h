#pragma once

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

}  // namespace runtime
