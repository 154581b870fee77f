#pragma once

#include <functional>
#include <string>

#include "platform/runtime/OutputPump.h"
#include "platform/runtime/TtyWire.h"

namespace runtime {

/// To be called first of all, before any thread is started and any file opened: the standard descriptors are open,
/// standard output is line-buffered, neither a reader that has gone away nor a limit on files ends the process,
/// children can be waited for, files are made for owner and group only, and GLib complains of each thing once. SIGTERM
/// and SIGINT end the process at once, with status 0.
void prepareProcess();

/// From now on SIGTERM and SIGINT wait for the framework. To be called before any thread is started and before there is
/// something that the end of the process has to take back.
void holdEndSignals();

/// The framework around a service: calls the three entry points that the service exports (KYRServiceFw.h) and ends
/// the process. One per process; it knows the service by nothing but the entry points and the bus name.
class ServiceFramework
{
public:
    /// From now on SIGTERM and SIGINT end the process with status 0 within a second, whatever hangs: without the
    /// line's link, and with what stands in standard output's buffer written. Nobody waits for a reader of standard
    /// output or standard error any more.
    /// @param wire the station's line; not owned, stays to the end of the process
    explicit ServiceFramework(TtyWire& wire);

    /// Brings the service up.
    void initialise(int argc, char** argv);

    /// Waits a few seconds at most until it is clear what became of the service's bus name, then prints the line that
    /// says that the service is ready, and tells a supervisor.
    /// @param hint waits for and gives one line on what else is not on the bus, empty for none. Not printed when there
    /// is no bus at all.
    void announceReady(const std::function<std::string()>& hint);

    /// Runs the service until a signal ends the process.
    [[noreturn]] void run();

private:
    TtyWire& wire_;
    OutputPump out_;
    OutputPump error_;
};

}  // namespace runtime
