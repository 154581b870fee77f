#pragma once

#include <string>

/// What KYRSystem.h asks of any platform on Linux. Any thread.
namespace runtime {

/// Runs a shell command; if `waits`, until it has ended. The only place that does. The command has default signals and
/// the standard descriptors, of which the first is empty and the others are standard error's.
/// @returns whether the shell exited with status 0.
bool runShell(std::string command, bool waits);

/// Removes a file, or, if the path ends in '*', every file whose path begins with the text before it. A directory
/// stays.
/// @param force also removes write-protected files
/// @returns whether no such file is left.
bool removeFiles(const std::string& path, bool force);

}  // namespace runtime
