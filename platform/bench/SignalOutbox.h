#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>

namespace bench {

/// A signal of the interface that waits to be sent.
struct OutgoingSignal {
    std::string name;
    std::string path;  ///< of a StateChanged
    std::string json;
};

/// A bounded queue of signals for a bus that does not read. Not thread-safe.
class SignalOutbox
{
public:
    static constexpr std::size_t kMostBytes = std::size_t{1} << 20;

    /// Appends a signal. Drops the oldest ones if there is no space, but never the newest.
    void push(OutgoingSignal signal);

    /// @returns the oldest signal; nothing if there is none.
    std::optional<OutgoingSignal> take();

private:
    std::deque<OutgoingSignal> signals_;
    std::size_t bytes_ = 0;  // of signals_
};

}  // namespace bench
