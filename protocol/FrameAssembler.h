#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <vector>

#include "protocol/Frame.h"

namespace protocol {

/// A frame that has been cut out of the receive buffer, its checksum good or bad.
struct ReceivedFrame {
    std::uint8_t length = 0;  // the length byte as received
    std::uint8_t cmdOne = 0;
    std::uint8_t cmdTwo = 0;
    std::uint16_t receivedChecksum = 0;
    bool checksumHolds = false;

    /// Parameter area, zero beyond what was received.
    std::array<std::uint8_t, 256> area{};

    /// The parameter bytes: length - 2 of them, without padding.
    std::span<std::uint8_t> params() { return std::span(area).first(static_cast<std::size_t>(length) - 2); }
};

/// The receive buffer: bytes go in as they come, complete frames come out. Knows no descriptor and no thread; whoever
/// uses it from several threads guards it.
///
/// A frame is the first place in the buffer that looks like one and is complete: header bytes, a length byte of at
/// least 2, all of its bytes there. Bytes before it go with it. What looks like a frame but is incomplete stays, and
/// does not keep a complete one behind it from being found.
///
/// The work is linear in the bytes received: each is searched once, however the stream is cut and however long it
/// stays in the buffer.
class FrameAssembler
{
public:
    /// Above this many bytes, those that can no longer begin a frame are dropped: a station that sends nothing but
    /// noise must not take all memory.
    static constexpr std::size_t kLimit = std::size_t{1} << 20;

    /// A buffer of this many bytes or fewer is not looked at: no sound frame is that short.
    static constexpr std::size_t kTooFew = 7;

    /// Takes bytes at the end of the buffer.
    /// @returns how many of the oldest bytes were dropped because the buffer had exceeded kLimit; mostly 0.
    std::size_t append(Bytes bytes);

    /// @returns whether there are enough bytes to look for frames. To be asked once per append, not per frame.
    bool worthParsing() const { return size() > kTooFew; }

    /// Cuts the next complete frame, with all bytes before it, out of the buffer.
    /// @returns nothing when there is no complete frame.
    std::optional<ReceivedFrame> next();

    /// Number of bytes not yet consumed.
    std::size_t size() const { return buffer_.size() - head_; }

    /// The bytes not yet consumed; valid until the next call of append() or next().
    std::span<std::uint8_t> bytes() { return std::span(buffer_).subspan(head_); }

private:
    /// A place that looks like a frame.
    struct Candidate {
        std::size_t start;   // index of its first header byte in buffer_
        std::size_t needed;  // size of buffer_ from which on it is complete
    };

    void findCandidates();
    void refreshNextNeeded();
    ReceivedFrame cut(std::size_t start);
    void consumeUpTo(std::size_t end);
    void compact();
    std::uint8_t byteOrZero(std::size_t index) const { return index < buffer_.size() ? buffer_[index] : 0; }

    std::vector<std::uint8_t> buffer_;
    std::size_t head_ = 0;              // bytes before this index are consumed
    std::size_t scanned_ = 0;           // no candidate that begins before this index is missing from candidates_
    std::deque<Candidate> candidates_;  // by start, ascending
    std::size_t nextNeeded_ = kNever;   // the least `needed` of candidates_

    static constexpr std::size_t kNever = static_cast<std::size_t>(-1);
};

}  // namespace protocol
