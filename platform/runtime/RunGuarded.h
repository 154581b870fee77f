#pragma once

#include <exception>
#include <string>

#include "platform/runtime/Report.h"

namespace runtime {

/// Runs `action` and reports what it throws, whatever that is: the fault of what is called must not end the thread.
/// @param what begins the report: "a timer's action has failed"
template <class Action>
void runGuarded(const std::string& what, Action&& action)
{
    try {
        action();
    } catch (const std::exception& error) {
        report(what + ": " + error.what());
    } catch (...) {
        report(what + ": something that is no std::exception");
    }
}

}  // namespace runtime
