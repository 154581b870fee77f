#pragma once

#include <string>

#include "platform/bench/FakeContext.h"

namespace bench {

/// What KYR_ExecSystemCmd and KYR_RemoveFile do: on the bench commands run and files go, as on the head unit, but for
/// those that the state lets fail.
class FakeSystem
{
public:
    explicit FakeSystem(const FakeContext& context) : context_(context) {}

    /// Runs a command with /bin/sh. Its output joins the process's standard error: standard output is the service's.
    /// @param waits whether to wait for it; without, it counts as successful once it runs
    /// @returns whether it exited with status 0.
    bool execute(const std::string& command, bool waits);

    /// Removes a file, or with a '*' at the end every file (no directory) whose name begins so.
    /// @param force whether a write-protected file goes too
    /// @returns whether nothing of that name is left.
    bool remove(const std::string& path, bool force);

private:
    const FakeContext context_;
};

}  // namespace bench
