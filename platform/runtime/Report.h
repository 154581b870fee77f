#pragma once

#include <exception>
#include <functional>
#include <string>

namespace runtime {

/// Takes a message for the person at the bench; replaced in tests.
using Reporter = std::function<void(const std::string&)>;

/// Prints `message` on standard error as one line of the program's, whatever characters it quotes. Any thread.
void report(const std::string& message);

/// Reports each warning or error of GLib, and of the libraries on it, in one line and once: without a bus, GLib
/// complains of every signal, and the reader of standard error may be slow. To be called once.
void reportGlibMessagesOnce();

/// Runs `action` and reports what it throws: a fault in the called code must not end the thread.
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
