#pragma once

#include <string>

#include "platform/bench/FakeContext.h"

namespace bench {

/// KYR_ExecSystemCmd() and KYR_RemoveFile(). As on the head unit, commands run and files are removed, except those that
/// the state lets fail.
class FakeSystem
{
public:
    explicit FakeSystem(const FakeContext& context) : context_(context) {}

    /// Runs a command with /bin/sh. Its output goes to standard error, since standard output belongs to the service.
    /// @param waits whether to wait for the command; otherwise it succeeds as soon as it runs
    /// @returns whether the command succeeded.
    bool execute(const std::string& command, bool waits);

    /// Removes a file, or with a '*' at the end all files, but no directories, whose name has this beginning.
    /// @param force whether to remove write-protected files
    /// @returns whether no such file is left.
    bool remove(const std::string& path, bool force);

private:
    const FakeContext context_;
};

}  // namespace bench
