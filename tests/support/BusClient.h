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

/// A program on the bus, played by the test: calls methods and records every signal of the engineering interface as
/// text, `OnAutoTestModeChangeSignal (true,)`, in the notation of the bus's own tools.
class BusClient
{
public:
    /// Connects to `address` and returns when no signal can be missed any more.
    explicit BusClient(const std::string& address);
    ~BusClient();

    BusClient(const BusClient&) = delete;
    BusClient& operator=(const BusClient&) = delete;

    /// Calls a method of the engineering service with `arguments` in the same notation.
    /// @returns the reply as text, or the name of the error.
    std::string callEngineering(const std::string& method, const std::string& arguments);

    /// Calls the service's org.freedesktop.DBus.Peer.Ping, which the bus library answers.
    std::string pingEngineering();

    /// As callEngineering() for the simulated head unit.
    std::string callHeadUnit(const std::string& method, const std::string& arguments);

    /// The same for the bus itself.
    std::string callBus(const std::string& method, const std::string& arguments);

    /// Waits until `name` has an owner, or with false until it has none.
    /// @returns whether that has come about.
    bool waitForOwner(const std::string& name, bool wanted);

    /// @returns the unique names of a process's connections.
    std::vector<std::string> connectionsOf(pid_t process);

    /// Sends `destination` a message that the bus lets pass and GDBus cannot decode: its argument, in a variant, is
    /// nested in 63 more.
    /// @param type a method call or a signal
    void sendUndecodable(const std::string& destination, GDBusMessageType type);

    /// Calls auto_test_set_track_index at the connection `destination` and sends `count` file descriptors along.
    /// @returns the reply as text, or the name of the error.
    std::string callWithDescriptors(const std::string& destination, int count);

    /// Waits until `count` signals have come.
    /// @returns all that have come, fewer when they do not come.
    std::vector<std::string> waitForSignals(std::size_t count);

    /// Asks the bus for a name.
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
