#pragma once

#include <cstdint>
#include <functional>
#include <span>

namespace runtime {

/// What carries bytes between the station and KYRUartAdapter: a terminal on the bench, memory in tests.
class Wire
{
public:
    using Receiver = std::function<void(std::span<std::uint8_t> chunk)>;

    virtual ~Wire() = default;

    /// Begins to deliver what the station sends, first of all what has arrived before. The wire calls `receiver` on
    /// one thread, one chunk at a time.
    virtual void attach(Receiver receiver) = 0;

    /// Ends the delivery; when it returns `receiver` is not running (unless the call came from it) and will not be
    /// called again.
    virtual void detach() = 0;

    /// Puts one frame on the wire, whole, from any thread.
    /// @returns false when the station does not read and the frame was dropped.
    virtual bool send(std::span<const std::uint8_t> frame) = 0;
};

/// Sets the wire that KYRUartAdapter uses; not owned. To be set before the service starts; null: no UART.
void installWire(Wire* wire);
Wire* installedWire();

}  // namespace runtime
