#pragma once

/// The prefix of every path on the persistent partition: empty on a head unit; on another machine a directory without a
/// trailing slash. Does not change while the process runs.
/// @returns the text, never null, owned by the platform.
const char* KYR_GetRootPath();

/// Runs a shell command and waits for it if `nWait` is 1. Any thread.
/// @returns non-zero if the command exited with status 0, else 0.
int KYR_ExecSystemCmd(const char* pCommand, int nWait);

/// Removes a file, or, if the path ends in '*', every file whose name begins with the text before it. Any thread.
/// @param nForce 1: also remove write-protected files
/// @returns non-zero if no such file is left, also if there was none before; else 0.
int KYR_RemoveFile(const char* pPath, int nForce);

/// Starts the proxies of the system services (power, system-misc, ...).
/// @returns 1, or 0 on failure.
int KYR_StartSystemProxy();
