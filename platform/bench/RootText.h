#pragma once

#include <string>
#include <string_view>

namespace bench {

/// @returns `path` as the service names it: less the root.
/// @param root what KYR_GetRootPath() gives
std::string pathLessRoot(std::string_view path, std::string_view root);

/// @returns the shell command `command` as it would be on a head unit: less the root in front of its paths. A path in
/// single quotes loses them with the root when nothing else in it needs them.
std::string commandLessRoot(std::string_view command, std::string_view root);

}  // namespace bench
