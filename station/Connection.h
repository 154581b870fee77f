#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "protocol/Errors.h"
#include "protocol/Frame.h"
#include "station/Interrupt.h"
#include "station/trace/Trace.h"

namespace station {

/// PATH[,BAUD] of the command line. A path may be anything that leads to the device: /dev/ttyUSB0, a by-id name, the
/// link of a bench.
struct PortSpec {
    std::string path;
    unsigned baud = 115200;
    /// Whether the device and its directory have to be this user's.
    bool ownOnly = false;
};

class Connection;

/// Checks the frames of one connection before they leave. Gets the events of the line like any sink and ends with the
/// connection. All on the connection's thread.
class SendGuard : public TraceSink
{
public:
    /// Called before a frame leaves. May send reading commands on `connection`, which are not checked themselves.
    /// Throws protocol::Error if the frame may not leave; the line says why.
    /// @returns whether the frame is only for the unit that is on the line now, not for one that comes after a loss.
    virtual bool check(Connection& connection, const protocol::Frame& command) = 0;
};

/// A test station on its own line. Locks the port against other programs (flock, then TIOCEXCL), traces it, and opens
/// it again if the device goes and comes back under the same name; it follows symbolic links anew each time. For one
/// thread.
///
/// A call that finds the device gone waits for it, up to Options::reconnect after the loss, before it does its work;
/// then it throws LineError (kLineFailed). Each further call looks once and does not wait.
class Connection
{
public:
    using Clock = std::chrono::steady_clock;
    using Duration = std::chrono::nanoseconds;

    struct Options {
        /// How long a call waits for a device that has gone before it throws LineError.
        Duration reconnect = std::chrono::seconds(10);
        /// Gets every event; may be nullptr; outlives the connection.
        TraceSink* trace = nullptr;
        /// Ends every wait with Interrupted; may be nullptr; outlives the connection.
        Interrupt* interrupt = nullptr;
    };

    /// Sets the guard of each connection that the process opens from now on; the default is none. Not to be called
    /// while another thread opens one.
    using MakeGuard = std::function<std::unique_ptr<SendGuard>()>;
    static void guardBy(MakeGuard make);

    /// Throws LineError (kPortUnavailable) with the path and the reason, and what to do as the remedy.
    Connection(PortSpec port, Options options);
    ~Connection();
    Connection(Connection&&) noexcept;

    /// @returns whether a frame answers the command.
    using Answers = std::function<bool(const protocol::Frame&)>;

    struct Exchange {
        /// Nothing if no answer came in time.
        std::optional<protocol::Frame> reply;
        /// From the last byte written to the last byte of the reply.
        Duration roundTrip{0};
        /// Frames with a wrong checksum meanwhile.
        std::size_t corrupt = 0;
    };

    /// Drops what is left from before, sends `command` and waits for the frame that `answers` accepts; it traces other
    /// frames and ignores them. If the device goes meanwhile and comes back, it sends a repeatable command again, with
    /// the whole time-out; any other ends with LineError at once if a byte of it may have reached the device. The
    /// time-out begins when the command's last byte can have left the device.
    /// Throws what the guard throws, and std::length_error for more than protocol::kMaxStationParams parameters.
    Exchange request(const protocol::Frame& command, const Answers& answers, Duration timeout, bool repeatable);

    /// Sends without waiting for anything. Never sends twice: LineError when the device goes in the middle.
    /// Throws what the guard throws, and std::length_error for more than protocol::kMaxStationParams parameters.
    void send(const protocol::Frame& command);

    /// @returns the next frame, received before or after this call; nothing if none came by `deadline`. If the device
    /// is away then, the next call goes on waiting for it.
    std::optional<protocol::Frame> receive(Clock::time_point deadline);

    /// @returns the quality of the line since the connection was made. Bytes of an unfinished frame count as garbage.
    LineQuality quality() const;

    /// The unit's power goes: until endOutage() the line may go, come back and carry anything. quality() stays as it
    /// is, and calls wait up to this time for a device that is away.
    void beginOutage(Clock::time_point until);
    void endOutage();

    /// From now on, calls wait no longer than this for a device that is away; for cleaning up at an end.
    void waitAtMost(Duration reconnect);

    const PortSpec& port() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace station
