#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/runtime/OutputPump.h"
#include "platform/runtime/TtyWire.h"

namespace runtime {

/// Prepares the process; to be called before any thread starts and any file is opened. The standard descriptors are
/// open, and standard output is line-buffered. Neither a closed reader nor a limit on file sizes ends the process.
/// Children can be waited for. Only owner and group can read new files. GLib reports each problem once. SIGTERM and
/// SIGINT end the process at once, with status 0.
void prepareProcess();

/// From now on SIGTERM and SIGINT wait for the framework. To be called before any thread starts, and before anything
/// exists that has to be removed at the end.
void holdEndSignals();

/// The framework around a service: calls the three entry points that the service exports (KYRServiceFw.h) and ends the
/// process. One per process. It knows only the entry points and the bus name of the service.
class ServiceFramework
{
public:
    /// From now on SIGTERM and SIGINT end the process with status 0 within a second, even if something hangs. The end
    /// removes the link of the line and writes the buffer of standard output. From now on no thread waits for a reader
    /// of standard output or standard error.
    /// @param wire the line to the station; not owned, outlives the process's threads
    explicit ServiceFramework(TtyWire& wire);

    /// Starts the service.
    void initialise(int argc, char** argv);

    /// Waits a few seconds at most until it is clear who owns the bus name of the service. Then prints the line that
    /// says that the service is ready, and notifies a supervisor.
    /// @param hint waits for the other users of the bus and returns one line on what is missing; empty for none. Not
    /// printed if there is no bus at all.
    void announceReady(const std::function<std::string()>& hint);

    /// Runs the service until a signal ends the process.
    [[noreturn]] void run();

    /// Replaces the process by a new run of its program, as if the unit had lost its power: nothing is deinitialised.
    /// Any thread. Returns only if the process is ending already.
    /// @param keep a descriptor that the new run inherits
    void restart(const std::vector<std::string>& arguments, int keep);

private:
    TtyWire& wire_;
    OutputPump out_;
    OutputPump error_;
};

}  // namespace runtime
