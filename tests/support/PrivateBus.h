#pragma once

#include <memory>
#include <string>

#include "tests/support/ChildProcess.h"
#include "tests/support/TempDir.h"

namespace tests {

/// A bus daemon for one test, independent of the configuration of the machine. It ends with the object, and with the
/// test process.
class PrivateBus
{
public:
    /// Starts the daemon. After the return, clients can connect. Throws std::runtime_error if it does not start.
    PrivateBus();
    ~PrivateBus();

    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    /// The value of DBUS_SESSION_BUS_ADDRESS for clients of this bus.
    const std::string& address() const { return address_; }

    pid_t pid() const { return daemon_->pid(); }

    /// The daemon starts `command` when it is asked to start the service `name`.
    void addService(const std::string& name, const std::string& command);

    /// Ends the daemon at once and waits until it is gone. Until startAgain(), only the address may be asked for.
    void kill();

    /// Starts another daemon, which listens at the same place: its address has another GUID.
    void startAgain();

    /// Stops the daemon: it keeps its connections, but reads and answers nothing.
    void stop();

    /// Continues a stopped daemon.
    void cont();

private:
    const TempDir directory_;
    std::unique_ptr<ChildProcess> daemon_;
    std::string address_;
};

}  // namespace tests
