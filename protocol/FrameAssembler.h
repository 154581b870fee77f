#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <vector>

#include "protocol/Frame.h"

namespace protocol {

/// A frame that has been cut out of the receive buffer, its checksum good or bad.
struct ReceivedFrame {
    std::uint8_t length;  // the length byte as received
    std::uint8_t cmdOne;
    std::uint8_t cmdTwo;
    bool checksumHolds;
    std::uint16_t receivedChecksum;

    /// What has come from the parameters on stands in the assembler, until its next append() or next().
    std::uint8_t* area;

    ReceivedFrame(const std::uint8_t* head, std::uint8_t* params, std::uint16_t received, bool holds)
        : length(head[kLengthOffset])
        , cmdOne(head[kCmdOneOffset])
        , cmdTwo(head[kCmdTwoOffset])
        , checksumHolds(holds)
        , receivedChecksum(received)
        , area(params)
    {
    }

    /// The parameter bytes: length - 2 of them, without padding.
    std::span<std::uint8_t> params() const { return {area, static_cast<std::size_t>(length) - 2}; }
};

/// The receive buffer: bytes go in as they come, complete frames come out. Knows no descriptor and no thread; whoever
/// uses it from several threads guards it.
///
/// A frame is the first place in the buffer that looks like one and is complete: header bytes, a length byte of at
/// least 2, all of its bytes there. Bytes before it go with it. What looks like a frame but is incomplete stays, and
/// does not keep a complete one behind it from being found.
///
/// The work is linear in the bytes received, however the stream is cut and however long it stays in the buffer: a
/// place is searched when it comes, and once more at most, when a frame that began before it has become complete.
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
    std::size_t append(Bytes bytes)
    {
        if (bytes.size() > buffer_.size() - end_)
            makeRoom(bytes.size());
        if (bytes.size() == 1)
            buffer_[end_] = bytes[0];
        else
            std::copy(bytes.begin(), bytes.end(), buffer_.data() + end_);
        end_ += bytes.size();
        return size() <= kLimit ? 0 : dropStale();
    }

    /// @returns whether there are enough bytes to look for frames. To be asked once per append, not per frame.
    bool worthParsing() const { return size() > kTooFew; }

    /// Cuts the next complete frame, with all bytes before it, out of the buffer.
    /// @returns nothing when there is no complete frame.
    std::optional<ReceivedFrame> next()
    {
        const std::size_t start = find();
        if (start == kNever)
            return std::nullopt;
        std::uint8_t* const frame = buffer_.data() + start;
        const std::uint8_t length = frame[kLengthOffset];
        if (length == kWrappingLength)
            return cutWrapping(start);
        const std::size_t check = kCmdOneOffset + paddedLength(length);
        const auto received = static_cast<std::uint16_t>(frame[check] << 8 | frame[check + 1]);
        // WIRE: what is received is summed with its padding byte, so that one which is not 0 spoils the checksum.
        const std::uint32_t sum = received + sumOf({frame + kLengthOffset, check - kLengthOffset});
        consumeUpTo(start + check + kChecksumSize);
        // In place: to copy what has just been written byte by byte costs more than all of the above.
        return std::optional<ReceivedFrame>(std::in_place, frame, frame + kParamsOffset, received, (sum & 0xFFFF) == 0);
    }

    /// Number of bytes not yet consumed.
    std::size_t size() const { return end_ - head_; }

    /// The bytes not yet consumed; valid until the next call of append() or next().
    std::span<std::uint8_t> bytes() { return std::span(buffer_).subspan(head_, size()); }

private:
    static constexpr std::size_t kHeadSize = kLengthOffset + 1;  // what must be there to know a frame's length
    static constexpr std::size_t kNever = static_cast<std::size_t>(-1);

    // WIRE: the padded length is an 8-bit number, so that of 255 is 0: such a frame counts as complete with 6 bytes.
    static constexpr std::uint8_t kWrappingLength = 255;
    static std::size_t paddedLength(std::uint8_t length) { return static_cast<std::uint8_t>(length + length % 2); }

    std::size_t find();
    ReceivedFrame cutWrapping(std::size_t start);
    void consumeUpTo(std::size_t end);
    void makeRoom(std::size_t count);
    void moveToFront();
    std::size_t dropStale();
    std::uint8_t byteOrZero(std::size_t index) const { return index < end_ ? buffer_[index] : 0; }

    // All positions are indices into buffer_; what is in it lies between head_ and end_.
    std::vector<std::uint8_t> buffer_;
    std::size_t head_ = 0;
    std::size_t end_ = 0;
    std::size_t scanned_ = 0;         // before it every place is decided, but for the frames that are still coming
    std::size_t firstOpen_ = kNever;  // the first of these
    std::size_t needed_ = kNever;     // where end_ must be for one of them to be complete
    std::array<std::uint8_t, 256> wrappedArea_{};  // the parameters of a frame of kWrappingLength
};

// Inline, as a frame of ten bytes costs little more than the calls would.

/// @returns where the first complete frame begins, or kNever.
inline std::size_t FrameAssembler::find()
{
    // Once one of the frames that were coming is complete, they are looked at again: the first may be another one.
    std::size_t at = needed_ <= end_ ? firstOpen_ : scanned_;
    std::size_t found = kNever;
    const std::uint8_t* const bytes = buffer_.data();
    for (; at + kHeadSize <= end_; ++at) {
        if (bytes[at] != kHeader1) {
            const std::size_t count = end_ - kHeadSize - at;  // places behind this one
            if (count == 0)
                continue;
            const void* const header = std::memchr(bytes + at + 1, kHeader1, count);
            if (header == nullptr) {
                at += count + 1;
                break;
            }
            at = static_cast<std::size_t>(static_cast<const std::uint8_t*>(header) - bytes);
        }
        const std::uint8_t length = bytes[at + kLengthOffset];
        if (bytes[at + 1] != kHeader2 || length < 2)
            continue;
        const std::size_t needed = at + kParamsOffset + paddedLength(length);
        if (needed <= end_) {
            found = at;
            break;
        }
        firstOpen_ = std::min(firstOpen_, at);
        needed_ = std::min(needed_, needed);
    }
    scanned_ = at;
    return found;
}

inline void FrameAssembler::consumeUpTo(std::size_t end)
{
    head_ = end;
    scanned_ = end;
    firstOpen_ = kNever;
    needed_ = kNever;
}

}  // namespace protocol
