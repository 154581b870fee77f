#pragma once

#include <string>
#include <string_view>

/// @returns `path` ("/perm_data/...", "/media/...", "/kyr/...") with the platform's root in front.
std::string PersistentPath(std::string_view path);

/// @returns the same as a word of a shell command.
std::string PersistentShellPath(std::string_view path);
