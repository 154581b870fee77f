#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>

namespace bench {

/// A signal of the head unit's interface that waits to be sent.
struct OutgoingSignal {
    std::string name;
    std::string path;  ///< of a StateChanged
    std::string json;
};

/// Signals that wait for a bus that does not read, in a limited space. Not safe for use from several threads at once.
class SignalOutbox
{
public:
    static constexpr std::size_t kMostBytes = std::size_t{1} << 20;

    /// Appends a signal. When there is no space the oldest are dropped; one that is alone is never too large.
    void push(OutgoingSignal signal);

    /// @returns the oldest signal, nothing when there is none.
    std::optional<OutgoingSignal> take();

private:
    std::deque<OutgoingSignal> signals_;
    std::size_t bytes_ = 0;  // of signals_
};

}  // namespace bench
