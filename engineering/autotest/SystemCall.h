#pragma once

/// Runs a shell command and waits for it.
/// @returns 1 when it ran and exited with status 0, else 0; the log says why.
unsigned int SystemCall(const char* command);
