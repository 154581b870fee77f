#pragma once

#include <sys/types.h>

#include <string>

namespace station {

/// @returns the holder of an flock on the file of `descriptor`, as "minicom (process 4711)"; empty when it cannot be
/// found.
std::string lockHolder(int descriptor);

/// @returns the user of the port at `path`, as above; empty if none can be seen. Does not open the port.
std::string portUser(const std::string& path);

/// @returns another process that has the device at `path` open, as above; empty if none can be seen. Only root sees the
/// files of other users' processes.
std::string otherUser(const std::string& path);

/// @returns whether a character device of this number is the station's end of a pseudo-terminal.
bool isPseudoTerminal(dev_t device);

}  // namespace station
