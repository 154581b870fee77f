#pragma once

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "host/Glib.h"

namespace tests {

/// A daemon on the bus that answers what the test has told it, and records its calls as text,
/// `StartUnit ('wifi.service', 'replace')`. It has no objects: any path and interface will do. Any thread.
class ScriptedService
{
public:
    using Answers = std::map<std::string, std::string>;

    /// Owns `name` on the bus at `address` as long as it lives.
    /// @param answers as of answer(), from the first call on: a unit that runs may call at once
    ScriptedService(const std::string& address, std::string name, Answers answers = {});
    ~ScriptedService();
    ScriptedService(const ScriptedService&) = delete;
    ScriptedService& operator=(const ScriptedService&) = delete;

    /// The answer to a method is a tuple in GVariant's text format, or begins with '!': the name of an error; without
    /// an answer there is silence. A method that was not mentioned answers ().
    void answer(const std::string& method, const std::string& reply);

    /// Sets a property of every object.
    void setSilently(const std::string& name, const std::string& value);

    /// The same, and emits the change from `path`.
    void setProperty(const std::string& path, const std::string& interface, const std::string& name,
                     const std::string& value);

    void emit(const std::string& path, const std::string& interface, const std::string& signal,
              const std::string& arguments);

    /// Calls a method of whoever sent the last call.
    /// @returns the reply as text, or the name of the error.
    std::string callBack(const std::string& path, const std::string& interface, const std::string& method,
                         const std::string& arguments);

    /// Waits until there are `count` calls; those that read properties are not counted.
    /// @returns all calls so far, fewer if they do not come in time.
    std::vector<std::string> waitForCalls(std::size_t count);

private:
    // Runs on GDBus's thread. One mutex for all: nothing else that ThreadSanitizer sees comes before its first use.
    static GDBusMessage* filter(GDBusConnection* connection, GDBusMessage* message, gboolean isIncoming, gpointer self);
    void serveLocked(GDBusMessage* call);
    void send(GDBusMessage* message);
    host::GlibPtr<GVariant> propertyLocked(GVariant* asked);
    host::GlibPtr<GVariant> allPropertiesLocked();

    host::GlibPtr<GDBusConnection> connection_;
    guint filter_ = 0;
    static inline std::mutex mutex_;
    std::condition_variable changed_;
    Answers answers_;                                // guarded by mutex_
    std::map<std::string, std::string> properties_;  // guarded by mutex_
    std::vector<std::string> calls_;                 // guarded by mutex_
    std::string caller_;                             // guarded by mutex_
};

}  // namespace tests
