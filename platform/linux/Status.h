#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace unit {

enum class State {
    kOff,     ///< the configuration switches the interface off: the service gets null
    kAbsent,  ///< the backend cannot be reached: getters answer what is known, actions are refused
    kUp,
};

/// @returns "off", "absent" or "up".
const char* nameOf(State state);

/// The reason of an interface whose backend is still being looked for.
inline constexpr const char* kNotAnswered = "the backend has not answered yet";

/// The same of a part of one.
inline constexpr const char* kNotRead = "no answer yet";

/// How an interface of the platform stands.
struct InterfaceStatus {
    std::string interface;  ///< the section of the configuration
    std::string backend;
    State state = State::kAbsent;
    std::string reason;  ///< of kAbsent, in one line: what is missing and what helps
    std::chrono::system_clock::time_point since;
};

/// The states of all interfaces. Any thread.
class StatusBoard
{
public:
    using Watcher = std::function<void(const InterfaceStatus&)>;

    /// @param reports whether each change is a line on standard error
    explicit StatusBoard(bool reports) : reports_(reports) {}

    /// Adds an interface: off, or absent since its backend has not answered yet.
    void add(const std::string& interface, const std::string& backend);

    /// Sets the state of an interface that is not off. Reports a change and tells the watcher.
    /// @param why may come from a device or a daemon: its reason is made printable
    void set(const std::string& interface, State state, const std::string& why = "");

    /// @returns all interfaces, in the order in which they were added.
    std::vector<InterfaceStatus> all() const;

    /// Calls `watcher` at each change, on the thread that makes it. Replaces an earlier one; empty for none.
    void watch(Watcher watcher);

    /// Waits until `wanted` accepts how all interfaces stand.
    /// @returns whether this happened within `patience`.
    bool await(const std::function<bool(const std::vector<InterfaceStatus>&)>& wanted,
               std::chrono::milliseconds patience) const;

private:
    const bool reports_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<InterfaceStatus> interfaces_;  // guarded by mutex_
    Watcher watcher_;                          // guarded by mutex_
};

/// The state of an interface with several parts: up while all of them are. On one thread, but for construction.
class PartsStatus
{
public:
    PartsStatus(StatusBoard& board, std::string interface) : board_(board), interface_(std::move(interface)) {}

    /// Adds a part, which is absent until it is set.
    void add(const std::string& part) { reasons_[part] = kNotRead; }

    /// @param reason why the part is absent; empty: it is there
    void set(const std::string& part, const std::string& reason);

    /// Tells the board. set() does, too.
    void show() const;

private:
    StatusBoard& board_;
    const std::string interface_;
    std::map<std::string, std::string> reasons_;
};

}  // namespace unit
