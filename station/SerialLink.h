#pragma once

#include <chrono>
#include <cstdint>
#include <span>
#include <string>

#include "protocol/Frame.h"

namespace station {

/// The station's end of the line: a serial device, or the terminal that stands for one on the bench.
/// Not for use by two threads at once. Whatever goes wrong is thrown as std::system_error with a text that names the
/// path.
class SerialLink
{
public:
    using Clock = std::chrono::steady_clock;

    static constexpr unsigned kDefaultBaud = 115200;

    /// @returns whether a line can be opened at this rate, in bits per second.
    static bool isKnownBaud(unsigned baud);

    /// Opens `path` raw, 8 data bits, no parity, 1 stop bit, no flow control. It never becomes the process's
    /// controlling terminal.
    /// @param baud bits per second; one of those that a serial device knows, else std::errc::invalid_argument.
    explicit SerialLink(const std::string& path, unsigned baud = kDefaultBaud);
    ~SerialLink();

    SerialLink(SerialLink&& other) noexcept;
    SerialLink& operator=(SerialLink&&) = delete;
    SerialLink(const SerialLink&) = delete;
    SerialLink& operator=(const SerialLink&) = delete;

    /// Drops what has been received and not been read.
    void discardInput();

    /// Writes all of `bytes`; throws std::errc::timed_out when the line does not take them by `deadline`.
    void write(protocol::Bytes bytes, Clock::time_point deadline);

    /// Reads what is there, or waits for the first bytes to come.
    /// @returns how many bytes were put into `out`; 0 when none came by `deadline`. Throws when the line is gone.
    std::size_t read(std::span<std::uint8_t> out, Clock::time_point deadline);

private:
    void configure(unsigned baud);
    bool waitFor(short events, Clock::time_point deadline) const;
    std::size_t readAvailable(std::span<std::uint8_t> out);
    [[noreturn]] void fail(int error, const char* what) const;

    std::string path_;
    int descriptor_;
};

}  // namespace station
