#pragma once

/// What stands in front of every path on the persistent partition: empty on a head unit, a directory without a slash
/// at its end where the service runs on another machine. Does not change while the process runs.
/// @returns the text, never null, owned by the platform.
const char* KYR_GetRootPath();

/// Runs a shell command and waits for it when `nWait` is 1. Any thread.
/// @returns non-zero when the command exited with status 0, else 0.
int KYR_ExecSystemCmd(const char* pCommand, int nWait);

/// Removes a file, or with a '*' at the end of the path every file whose name begins so. Any thread.
/// @param nForce 1: a file that is write-protected goes too
/// @returns non-zero when nothing of that name is left, also when there was nothing before; else 0.
int KYR_RemoveFile(const char* pPath, int nForce);

/// Starts the proxies of the system services (power, system-misc, ...).
/// @returns 1, or 0 on failure.
int KYR_StartSystemProxy();
