#pragma once

#include <memory>
#include <stdexcept>

namespace station {

/// The user wants an end: thrown out of whatever waits.
class Interrupted : public std::runtime_error
{
public:
    Interrupted() : std::runtime_error("interrupted") {}
};

/// A flag that ends waiting, settable from a signal handler: `request` is async-signal-safe and wakes whoever waits
/// in poll on `descriptor`. All functions may be called from any thread.
class Interrupt
{
public:
    /// Throws std::system_error when the process has no descriptor left.
    Interrupt();
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    void request() noexcept;
    /// Takes the wish back, so that a teardown can wait again.
    void clear() noexcept;
    bool requested() const noexcept;
    /// Readable while the end is wished for.
    int descriptor() const noexcept;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace station
