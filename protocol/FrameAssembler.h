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

/// A frame from the receive buffer. Its checksum may be wrong.
struct ReceivedFrame {
    std::uint8_t length;  // the length byte as received
    std::uint8_t cmdOne;
    std::uint8_t cmdTwo;
    bool checksumHolds;
    std::uint16_t receivedChecksum;

    /// The first parameter byte, in the assembler's memory; valid until its next append() or next().
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

/// The receive buffer: bytes go in as they arrive, complete frames come out. It uses no descriptor and no thread; a
/// caller with several threads guards it.
///
/// A frame is the first place in the buffer that looks like one and is complete: header bytes, a length byte of at
/// least 2, and all of its bytes. next() removes the bytes before it, too. An incomplete frame stays in the buffer, and
/// a complete frame after it is found all the same.
///
/// The work is linear in the bytes received, however the stream is cut and however long it stays in the buffer. A place
/// is searched when it arrives, and at most once more, when a frame that began before it becomes complete.
class FrameAssembler
{
public:
    /// Above this size, the buffer drops the bytes that can no longer begin a frame: a station that sends only noise
    /// must not fill the memory.
    static constexpr std::size_t kLimit = std::size_t{1} << 20;

    /// A buffer of this size or less is not searched: every good frame is longer.
    static constexpr std::size_t kTooFew = 7;

    /// Appends bytes to the buffer.
    /// @returns how many of the oldest bytes it dropped because the buffer exceeded kLimit; usually 0.
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

    /// @returns whether the buffer is long enough to search. Ask once for each append(), not for each frame.
    bool worthParsing() const { return size() > kTooFew; }

    /// Removes the next complete frame and all bytes before it from the buffer.
    /// @returns nothing without a complete frame.
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
        // WIRE: the sum of a received frame includes the padding byte, so a padding other than 0 breaks the checksum.
        const std::uint32_t sum = received + sumOf({frame + kLengthOffset, check - kLengthOffset});
        consumeUpTo(start + check + kChecksumSize);
        // In place: a copy of these members costs more than all of the above.
        return std::optional<ReceivedFrame>(std::in_place, frame, frame + kParamsOffset, received, (sum & 0xFFFF) == 0);
    }

    /// Number of bytes not yet consumed.
    std::size_t size() const { return end_ - head_; }

    /// The bytes not yet consumed; valid until the next call of append() or next().
    std::span<std::uint8_t> bytes() { return std::span(buffer_).subspan(head_, size()); }

private:
    static constexpr std::size_t kHeadSize = kLengthOffset + 1;  // the bytes up to and including a frame's length
    static constexpr std::size_t kNever = static_cast<std::size_t>(-1);

    // WIRE: the padded length is an 8-bit number, 0 for a length of 255: such a frame counts as complete with 6 bytes.
    static constexpr std::uint8_t kWrappingLength = 255;
    static std::size_t paddedLength(std::uint8_t length) { return static_cast<std::uint8_t>(length + length % 2); }

    std::size_t find();
    ReceivedFrame cutWrapping(std::size_t start);
    void consumeUpTo(std::size_t end);
    void makeRoom(std::size_t count);
    void moveToFront();
    std::size_t dropStale();
    std::uint8_t byteOrZero(std::size_t index) const { return index < end_ ? buffer_[index] : 0; }

    // All positions are indices into buffer_; its content lies between head_ and end_.
    std::vector<std::uint8_t> buffer_;
    std::size_t head_ = 0;
    std::size_t end_ = 0;
    std::size_t scanned_ = 0;                      // every place before it is decided, except incomplete frames
    std::size_t firstOpen_ = kNever;               // the first incomplete frame
    std::size_t needed_ = kNever;                  // the value of end_ that completes one of them
    std::array<std::uint8_t, 256> wrappedArea_{};  // the parameters of a frame of kWrappingLength
};

// Inline: a frame of ten bytes costs little more than the calls.

/// @returns where the first complete frame begins, or kNever.
inline std::size_t FrameAssembler::find()
{
    // When an incomplete frame becomes complete, the search starts again at the first: another may be complete first.
    std::size_t at = needed_ <= end_ ? firstOpen_ : scanned_;
    std::size_t found = kNever;
    const std::uint8_t* const bytes = buffer_.data();
    for (; at + kHeadSize <= end_; ++at) {
        if (bytes[at] != kHeader1) {
            const std::size_t count = end_ - kHeadSize - at;  // places behind this one
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
