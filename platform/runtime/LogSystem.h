#pragma once

#include <string>

namespace runtime {

/// Has log_system_init() use the configuration in `file` in place of the built-in one. To be called once, before the
/// service starts.
/// @returns why the file cannot be used, in one line; empty when it can.
std::string useLogConfiguration(const std::string& file);

}  // namespace runtime
