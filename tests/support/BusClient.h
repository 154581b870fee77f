#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host/Glib.h"
#include "tests/support/ChildProcess.h"

namespace tests {

/// A client of the bus for tests. Calls methods, and records every signal of the engineering interface as text,
/// `OnAutoTestModeChangeSignal (true,)`, as the tools of the bus write it.
class BusClient
{
public:
    /// Connects to `address`. After the return, no signal is missed.
    explicit BusClient(const std::string& address);
    ~BusClient();

    BusClient(const BusClient&) = delete;
    BusClient& operator=(const BusClient&) = delete;

    /// Calls a method of the engineering service with `arguments` in the same notation.
    /// @returns the reply as text, or the name of the error.
    std::string callEngineering(const std::string& method, const std::string& arguments);

    /// Calls org.freedesktop.DBus.Peer.Ping of the service, which GDBus answers.
    std::string pingEngineering();

    /// As callEngineering() for the simulated head unit.
    std::string callHeadUnit(const std::string& method, const std::string& arguments);

    /// As callEngineering() for the bus itself.
    std::string callBus(const std::string& method, const std::string& arguments);

    /// Waits until `name` has an owner, or with false until it has no owner.
    /// @returns whether this happened in time.
    bool waitForOwner(const std::string& name, bool wanted);

    /// @returns the unique names of a process's connections.
    std::vector<std::string> connectionsOf(pid_t process);

    /// Sends `destination` a message that passes the bus and that GDBus cannot decode: its argument is nested in 64
    /// variants.
    /// @param type a method call or a signal
    void sendUndecodable(const std::string& destination, GDBusMessageType type);

    /// Calls auto_test_set_track_index at the connection `destination` and sends `count` file descriptors along.
    /// @returns the reply as text, or the name of the error.
    std::string callWithDescriptors(const std::string& destination, int count);

    /// Waits until `count` signals have come.
    /// @returns all signals so far, fewer if they do not come in time.
    std::vector<std::string> waitForSignals(std::size_t count);

    /// Requests a name from the bus.
    /// @returns whether this client owns it now.
    bool own(const std::string& name);

    /// Broadcasts a signal of the engineering interface, as if this were the service.
    void emitEngineering(const std::string& signal, const std::string& arguments);

    GDBusConnection* connection() const { return connection_.get(); }

private:
    void record(const char* name, GVariant* arguments);
    std::string call(const char* name, const char* path, const char* interface, const std::string& method,
                     GVariant* arguments);
    void subscribe();

    const host::GlibPtr<GMainContext> context_;
    const host::GlibPtr<GMainLoop> loop_;
    host::GlibPtr<GDBusConnection> connection_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> signals_;  // guarded by mutex_
    std::thread thread_;
};

}  // namespace tests
