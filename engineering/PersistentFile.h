#pragma once

#include <string>

/// Makes a file when it is not there, empty, for its owner to write and its group to read; a stricter umask holds. By
/// itself a stream would let everybody on the unit read what it makes. What is there keeps its content and its mode.
void MakePersistentFile(const std::string& path);
