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
/// Not for use by two threads at once. Whatever goes wrong is thrown as std::system_error with a text that names the
/// path.
class SerialLink
{
public:
    using Clock = std::chrono::steady_clock;

    static constexpr unsigned kDefaultBaud = host::kDefaultBaud;

    struct Options {
        /// Locks the device against other stations, and against every program that is not root's where that ends with
        /// this one's life; std::errc::device_or_resource_busy when somebody else has it.
        bool exclusive = false;
        /// Refuses what somebody else may have put there, with std::errc::operation_not_permitted: the device, and the
        /// directory in which `path` stands, have to be this user's. For a path in a directory that anybody may make.
        bool ownOnly = false;
        /// Ends every wait with Interrupted; may be nullptr; outlives the link.
        const Interrupt* interrupt = nullptr;
    };

    /// @returns whether the directory in which `path` stands is this user's, and not a symbolic link.
    static bool isInOwnDirectory(const std::string& path);

    /// @returns whether a line can be opened at this rate, in bits per second.
    static bool isKnownBaud(unsigned baud);

    /// Opens `path` raw, 8 data bits, no parity, 1 stop bit, no flow control. It never becomes the process's
    /// controlling terminal.
    /// @param baud bits per second; one of those that a serial device knows, else std::errc::invalid_argument.
    explicit SerialLink(const std::string& path, unsigned baud = kDefaultBaud);
    SerialLink(const std::string& path, unsigned baud, Options options);

    /// Drops what has been received and not been read.
    void discardInput();

    /// Writes all of `bytes`; throws std::errc::timed_out when the line does not take them by `deadline`.
    void write(protocol::Bytes bytes, Clock::time_point deadline);

    /// Writes as many of `bytes` as the line takes, at least one.
    /// @returns how many; throws as `write` does, and then has written none.
    std::size_t writeSome(protocol::Bytes bytes, Clock::time_point deadline);

    /// Reads what is there, or waits for the first bytes to come.
    /// @returns how many bytes were put into `out`; 0 when none came by `deadline`. Throws when the line is gone.
    std::size_t read(std::span<std::uint8_t> out, Clock::time_point deadline);

private:
    void refuseForeign() const;
    void lock();
    void configure(unsigned baud);
    bool waitFor(short events, Clock::time_point deadline) const;
    std::size_t readAvailable(std::span<std::uint8_t> out);
    [[noreturn]] void fail(int error, const std::string& what) const;

    std::string path_;
    const Interrupt* interrupt_ = nullptr;
    host::Descriptor descriptor_;
};

}  // namespace station
