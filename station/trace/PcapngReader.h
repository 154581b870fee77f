#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <istream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/Errors.h"
#include "protocol/FrameAssembler.h"
#include "station/trace/Trace.h"

namespace station::pcapng {

/// The limit of a capture's times from 1970: the difference between any two has room in 64 bits of nanoseconds.
inline constexpr std::int64_t kFarthestSeconds = 4'000'000'000;

/// @returns whether a file begins as a capture in the older format, pcap.
bool isClassic(std::string_view text);

/// @returns whether a file begins as a capture that Reader reads.
bool isCapture(std::string_view text);

/// Reads the frames of a capture, pcapng or the older pcap: our own, or any whose packets have link type USER0 and hold
/// pieces of the line's bytes, cut where they may. Either byte order, any number of sections and interfaces; packets of
/// other link types and blocks of other kinds are passed over.
class Reader
{
public:
    /// @param in binary; outlives the reader.
    /// @param name of the file, for error messages.
    Reader(std::istream& in, std::string name);

    /// @returns the next event, nothing at the end. Throws UserError at the place where the capture is broken, after it
    /// has returned every event before that place. The direction is the packet's; if the packet has none, bit 7 of
    /// cmd_one tells it. `steady` is not set, and `at` is 1970 if the capture has no time. `text` is the packet's
    /// comment.
    std::optional<TraceEvent> next();

    /// @returns how many packets were of another link type so far.
    std::size_t foreign() const { return foreign_; }

private:
    struct Interface {
        std::uint16_t linkType = 0;
        std::uint64_t ticksPerSecond = 1'000'000;
        std::int64_t offsetSeconds = 0;
    };
    struct Packet {
        std::uint64_t ticks = 0;
        std::string_view bytes;
        std::string_view options;
    };

    bool readBlock();
    void startClassic(std::string_view head);
    bool readRecord();
    void handle(std::uint32_t type, std::string_view body);
    void startSection(std::string_view body);
    void addInterface(std::string_view body);
    void addPacket(std::uint32_t interface, const Packet& packet);
    template <class Number>
    Number number(std::string_view bytes, std::size_t offset) const;
    std::string_view part(std::string_view body, std::size_t offset, std::size_t length) const;
    template <class Visit>
    void eachOption(std::string_view options, Visit visit) const;
    [[noreturn]] void fail(const std::string& what) const;

    std::istream& in_;
    std::string name_;
    std::uint64_t offset_ = 0;  // of the block that is read
    bool bigEndian_ = false;
    bool classic_ = false;
    std::vector<Interface> interfaces_;
    std::array<protocol::FrameAssembler, 3> directions_;  // not told, inbound, outbound
    std::deque<TraceEvent> ready_;
    std::size_t foreign_ = 0;
};

}  // namespace station::pcapng
