#pragma once

#include <memory>
#include <string>

#include "protocol/Errors.h"

namespace station {

/// The user asks for the end: thrown out of every wait.
class Interrupted : public protocol::Error
{
public:
    explicit Interrupted(const std::string& line = "interrupted") : Error(line, "interrupted", protocol::kInterrupted)
    {
    }
};

/// A flag that ends waiting. A signal handler may set it: `request` is async-signal-safe and wakes a poll on
/// `descriptor`. All functions may be called from any thread.
class Interrupt
{
public:
    /// Throws std::system_error when the process has no descriptor left.
    Interrupt();
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    void request() noexcept;
    /// Takes the request back, so that a teardown can wait again.
    void clear() noexcept;
    bool requested() const noexcept;
    /// Readable from `request` to `clear`.
    int descriptor() const noexcept;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace station
