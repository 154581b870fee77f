#pragma once

#include <string>

namespace station {

/// @returns who holds an flock on the file of `descriptor`, as "minicom (process 4711)"; empty when it cannot be found.
std::string lockHolder(int descriptor);

/// @returns another process that has the device at `path` open, as above; empty when none can be seen: the processes of
/// other users show what they have open to root only.
std::string otherUser(const std::string& path);

}  // namespace station
