#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <string_view>

#include "host/Descriptor.h"
#include "station/trace/Trace.h"

/// Captures in the pcapng format, for Wireshark and for ourselves. Each frame is a packet of link type USER0 that
/// holds its bytes from 2A A2 to the checksum, with a time stamp in nanoseconds, its direction (inbound: sent by the
/// head unit) and a comment. A wrong checksum sets the packet's CRC error flag. That the device went or came back is a
/// packet without bytes whose comment says so.
namespace station::pcapng {

/// DLT_USER0: the writer and the reader of a capture agree on its meaning.
inline constexpr std::uint16_t kUser0 = 147;

/// Types of blocks.
inline constexpr std::uint32_t kSectionHeader = 0x0A0D0D0A;
inline constexpr std::uint32_t kInterfaceDescription = 1;
inline constexpr std::uint32_t kEnhancedPacket = 6;

/// Options of a packet.
inline constexpr std::uint16_t kComment = 1;
inline constexpr std::uint16_t kPacketFlags = 2;

struct Source {
    std::string application;  ///< "engineering-station 1.0.0"
    std::string port;         ///< the device's path
    unsigned baud = 0;        ///< 0: not told
};

/// @returns the beginning of every capture: a section header and the description of the one interface.
std::string header(const Source& source);

/// @returns the packet for an event.
/// @param comment UTF-8; of more than 60000 bytes the rest is left out.
std::string packet(const TraceEvent& event, std::string_view comment);

/// @returns one line about the event for its comment, empty for none.
using Describe = std::function<std::string(const TraceEvent&)>;

/// Writes a capture while it happens. Each packet is on its way to the disk when `on` returns: whatever ends the
/// process, the file can be read up to there.
class File : public TraceSink
{
public:
    /// Replaces the file at `path`; throws std::system_error with a text that names it.
    /// @param describe may be empty; the words for a device that went or came back are put in by `packet`.
    /// @param limit bytes that the file may have; a last packet says that it ends there
    File(const std::string& path, const Source& source, Describe describe,
         std::int64_t limit = std::numeric_limits<std::int64_t>::max());
    /// Writes to standard output. Does not throw: `failure` says what went wrong.
    File(const Source& source, Describe describe);
    ~File() override;
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    void on(const TraceEvent& event) override;

    /// @returns why the capture ended early; empty if it did not. Complete packets stay readable.
    const std::string& failure() const { return failure_; }

private:
    void append(std::string_view block);

    std::string path_;
    Describe describe_;
    std::string failure_;
    std::int64_t end_ = 0;  // of the last whole block
    std::int64_t limit_ = std::numeric_limits<std::int64_t>::max();
    bool full_ = false;
    bool ownFile_ = false;
    host::Descriptor descriptor_;
};

}  // namespace station::pcapng
