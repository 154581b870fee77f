#pragma once

#include <exception>
#include <functional>
#include <string>

namespace runtime {

/// Takes a message for the user of the bench. Tests replace it.
using Reporter = std::function<void(const std::string&)>;

/// Prints `message` as one line on standard error, after the name of the program. Replaces control characters. Any
/// thread.
void report(const std::string& message);

/// Sets the name of the program, by default engineering-service. Before any thread starts.
void reportAs(const char* program);

/// Reports each warning or error of GLib and its libraries once, in one line: without a bus, GLib complains about every
/// signal, and the reader of standard error may be slow. To be called once.
void reportGlibMessagesOnce();

/// Runs `action` and reports any exception, so that a fault in the action does not end the thread.
/// @param what begins the report: "a timer's action has failed"
template <class Action>
void runGuarded(const std::string& what, Action&& action)
{
    try {
        action();
    } catch (const std::exception& error) {
        report(what + ": " + error.what());
    } catch (...) {
        report(what + ": not a std::exception");
    }
}

}  // namespace runtime
