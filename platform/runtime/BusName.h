#pragma once

#include <chrono>
#include <string>

namespace runtime {

/// Who owns a bus name that another part of this process asks for.
struct BusName {
    enum class State {
        kOwned,  ///< by this process
        kNoBus,  ///< there is no session bus, or it does not answer
        kTaken,  ///< another process has it
        kLate,   ///< no process owns it in time
    };

    State state;
    std::string reason;  ///< of kNoBus, in one line
};

/// Waits until it is clear whether this process owns `name` on the session bus. Watches the bus over a connection of
/// its own and does not ask for the name.
BusName awaitBusName(const std::string& name, std::chrono::milliseconds patience);

}  // namespace runtime
