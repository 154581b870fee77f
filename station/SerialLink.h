#pragma once

#include <chrono>
#include <cstdint>
#include <span>
#include <string>

#include "host/Baud.h"
#include "host/Descriptor.h"
#include "protocol/Frame.h"
#include "station/Interrupt.h"

namespace station {

/// The station's end of the line: a serial device, or the terminal that stands for one on the bench.
/// For one thread at a time. Throws std::system_error with a text that names the path.
class SerialLink
{
public:
    using Clock = std::chrono::steady_clock;

    static constexpr unsigned kDefaultBaud = host::kDefaultBaud;

    struct Options {
        /// Locks the device against other stations; where the lock ends with this process, also against every program
        /// that is not root's. std::errc::device_or_resource_busy if another process has it.
        bool exclusive = false;
        /// Refuses a device or a directory of `path` that is not this user's, with std::errc::operation_not_permitted.
        /// For a path in a directory that any user may make.
        bool ownOnly = false;
        /// Ends every wait with Interrupted; may be nullptr; outlives the link.
        const Interrupt* interrupt = nullptr;
    };

    /// @returns whether the directory in which `path` stands is this user's, and not a symbolic link.
    static bool isInOwnDirectory(const std::string& path);

    /// Opens `path` raw, 8 data bits, no parity, 1 stop bit, no flow control. It never becomes the process's
    /// controlling terminal.
    /// @param baud bits per second; one of those that a serial device knows, else std::errc::invalid_argument.
    explicit SerialLink(const std::string& path, unsigned baud = kDefaultBaud);
    SerialLink(const std::string& path, unsigned baud, Options options);

    /// Takes over a connection that is open and does not block, such as a socket.
    /// @param name in messages
    SerialLink(host::Descriptor connection, std::string name);

    /// From now on this, or nothing, ends the waits.
    void interruptBy(const Interrupt* interrupt) { interrupt_ = interrupt; }

    /// For poll(); stays this object's.
    int descriptor() const { return descriptor_.get(); }

    /// Drops the bytes that were received and not read.
    void discardInput();

    /// Writes all of `bytes`; throws std::errc::timed_out when the line does not take them by `deadline`.
    void write(protocol::Bytes bytes, Clock::time_point deadline);

    /// Writes as many of `bytes` as the line takes, at least one.
    /// @returns how many; throws as `write` does, and then has written none.
    std::size_t writeSome(protocol::Bytes bytes, Clock::time_point deadline);

    /// Reads the bytes that are there, or waits for the first.
    /// @returns how many bytes were put into `out`; 0 when none came by `deadline`. Throws when the line is gone.
    std::size_t read(std::span<std::uint8_t> out, Clock::time_point deadline);

private:
    void refuseForeign() const;
    void lock();
    void configure(unsigned baud);
    bool waitFor(short events, Clock::time_point deadline) const;
    std::size_t readAvailable(std::span<std::uint8_t> out);
    /// Throws with the system's reason behind `what`, and without it.
    [[noreturn]] void fail(int error, const std::string& what) const;
    [[noreturn]] void refuse(int error, const std::string& what) const;

    std::string path_;
    const Interrupt* interrupt_ = nullptr;
    host::Descriptor descriptor_;
};

}  // namespace station
