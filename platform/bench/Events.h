#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/bench/Services.h"

namespace bench {

/// A refused event or start. The message says in one line what was wrong and what is expected.
class EventError : public std::runtime_error
{
public:
    enum class Kind { kUnknownEvent, kInvalidArguments, kNoStartAction };

    EventError(Kind kind, const std::string& message) : std::runtime_error(message), kind_(kind) {}

    Kind kind() const { return kind_; }

private:
    Kind kind_;
};

/// @returns the names of all events.
std::vector<std::string> eventNames();

/// Checks an event.
/// @returns the delivery, to be run on the listener thread while `services` exists.
/// @throws EventError (UnknownEvent, InvalidArguments)
std::function<void()> makeEvent(Services& services, const std::string& name, const nlohmann::json& arguments);

}  // namespace bench
