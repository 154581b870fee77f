#pragma once

#include <string>
#include <string_view>

namespace bench {

/// @returns `path` without the root, as on a head unit.
/// @param root the result of KYR_GetRootPath()
std::string pathLessRoot(std::string_view path, std::string_view root);

/// @returns the shell command without the root in its paths, as on a head unit. If a path in single quotes no longer
/// needs them, it loses the quotes too.
std::string commandLessRoot(std::string_view command, std::string_view root);

}  // namespace bench
