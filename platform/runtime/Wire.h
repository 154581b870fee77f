#pragma once

#include <cstdint>
#include <functional>
#include <span>

namespace runtime {

/// Carries bytes between the station and KYRUartAdapter: over a terminal on the bench, in memory in tests.
class Wire
{
public:
    using Receiver = std::function<void(std::span<std::uint8_t> chunk)>;

    virtual ~Wire() = default;

    /// Starts to deliver the bytes from the station, beginning with those that have already arrived. Calls `receiver`
    /// on one thread, one chunk at a time.
    virtual void attach(Receiver receiver) = 0;

    /// Ends the delivery. After the return, `receiver` is not running, unless it made the call, and is never called
    /// again.
    virtual void detach() = 0;

    /// Writes one whole frame. Any thread.
    /// @returns false if the station does not read and the frame was dropped.
    virtual bool send(std::span<const std::uint8_t> frame) = 0;
};

/// Sets the wire for KYRUartAdapter; not owned. Null: there is no UART. To be called before the service starts.
void installWire(Wire* wire);
Wire* installedWire();

}  // namespace runtime
