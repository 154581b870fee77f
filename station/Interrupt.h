#pragma once

#include <atomic>
#include <cerrno>

#include "host/Descriptor.h"
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
    void request() noexcept
    {
        const int error = errno;
        requested_ = true;
        wakeup_.signal();
        errno = error;
    }

    /// Takes the request back, so that a teardown can wait again.
    void clear() noexcept
    {
        requested_ = false;
        wakeup_.clear();
    }

    bool requested() const noexcept { return requested_; }

    /// Readable from `request` to `clear`.
    int descriptor() const noexcept { return wakeup_.descriptor(); }

private:
    // Anything else would not be safe in a signal handler.
    static_assert(std::atomic<bool>::is_always_lock_free);

    std::atomic<bool> requested_ = false;
    host::Wakeup wakeup_;
};

}  // namespace station
