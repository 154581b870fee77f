#pragma once

#include <memory>
#include <string>

#include "tests/support/ChildProcess.h"
#include "tests/support/TempDir.h"

namespace tests {

/// A bus daemon of the test's own, which knows nothing of the machine's configuration. It dies with the object, and
/// with the test process.
class PrivateBus
{
public:
    /// Starts the daemon and returns when clients can connect; throws std::runtime_error when it does not come up.
    PrivateBus();
    ~PrivateBus();

    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    /// What DBUS_SESSION_BUS_ADDRESS is to be for a client of this bus.
    const std::string& address() const { return address_; }

    pid_t pid() const { return daemon_->pid(); }

    /// Ends the daemon at once and waits until it is gone.
    void kill();

    /// Makes the daemon stand still: it keeps its connections, and reads and answers nothing.
    void stop();

    /// Lets a daemon that stands still go on.
    void cont();

private:
    TempDir directory_;
    std::unique_ptr<ChildProcess> daemon_;
    std::string address_;
};

}  // namespace tests
