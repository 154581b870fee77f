#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <span>
#include <stdexcept>
#include <string>

#include "platform/bench/Services.h"

namespace bench {

/// An event or a start that was refused; what() says in one line what was wrong and what would be right.
class EventError : public std::runtime_error
{
public:
    enum class Kind { kUnknownEvent, kInvalidArguments, kNoStartAction };

    EventError(Kind kind, const std::string& message) : std::runtime_error(message), kind_(kind) {}

    Kind kind() const { return kind_; }

private:
    Kind kind_;
};

/// What an argument of an event may be.
enum class ArgumentType {
    kInt,       ///< 32 bits and a sign
    kUnsigned,  ///< 32 bits
    kByte,      ///< 0 to 255
    kText,
    kSatellites,  ///< array of at most 20 arrays of two integers: number and signal
};

struct EventArgument {
    const char* name;
    ArgumentType type;
    bool required = true;
};

/// One listener operation.
struct Event {
    const char* name;
    std::span<const EventArgument> arguments;
    /// Calls the operation on every listener, with arguments that have been checked. Listener thread.
    void (*deliver)(Services& services, const nlohmann::json& arguments);
};

/// @returns every event there is.
std::span<const Event> allEvents();

/// Checks an event.
/// @returns what delivers it, to be run on the listener thread while `services` lives.
/// @throws EventError (UnknownEvent, InvalidArguments)
std::function<void()> makeEvent(Services& services, const std::string& name, const nlohmann::json& arguments);

}  // namespace bench
