#pragma once

#include <string>

namespace runtime {

/// Makes log_system_init() use the configuration in `file` instead of the built-in one. To be called once, before the
/// service starts.
/// @throws protocol::UserError
void useLogConfiguration(const std::string& file);

}  // namespace runtime
