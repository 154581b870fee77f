#pragma once

#include <sys/types.h>

#include <string>

namespace station {

/// @returns who holds an flock on the file of `descriptor`, as "minicom (process 4711)"; empty when it cannot be found.
std::string lockHolder(int descriptor);

/// @returns who uses the port at `path`, as above; empty when it is free as far as can be seen. It is not opened.
std::string portUser(const std::string& path);

/// @returns another process that has the device at `path` open, as above; empty when none can be seen: the processes of
/// other users show what they have open to root only.
std::string otherUser(const std::string& path);

/// @returns whether a character device of this number is the station's end of a pseudo-terminal.
bool isPseudoTerminal(dev_t device);

}  // namespace station
