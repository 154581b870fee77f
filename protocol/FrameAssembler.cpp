#include "protocol/FrameAssembler.h"

namespace protocol {

namespace {

/// Twice the room for a chunk of the size that UART clients deliver and the rest of an earlier chunk.
constexpr std::size_t kLeastRoom = 2 * (4096 + kMaxStationFrame);

}  // namespace

// WIRE: with a padded length of 0 the count of bytes to copy wraps; the size of the parameter area limits it. Missing
//       bytes count as 0, those of the checksum too.
ReceivedFrame FrameAssembler::cutWrapping(std::size_t start)
{
    const std::size_t params = start + kParamsOffset;
    const std::size_t count = wrappedArea_.size();
    const std::size_t present = std::min(count, end_ - params);
    wrappedArea_.fill(0);
    std::copy_n(buffer_.data() + params, present, wrappedArea_.begin());

    const std::uint8_t* const frame = buffer_.data() + start;
    const std::size_t check = params + count;
    const auto received = static_cast<std::uint16_t>(byteOrZero(check) << 8 | byteOrZero(check + 1));
    const bool holds = received == checksum(kWrappingLength, frame[kCmdOneOffset], frame[kCmdTwoOffset], wrappedArea_);
    consumeUpTo(std::min(check + kChecksumSize, end_));
    return {frame, wrappedArea_.data(), received, holds};
}

// Bytes move to the front only after at least as many have been consumed, and growing doubles the room. So a byte moves
// once on average, and a burst of frames costs one move.
void FrameAssembler::makeRoom(std::size_t count)
{
    if (head_ >= size())
        moveToFront();
    if (count <= buffer_.size() - end_)
        return;
    buffer_.resize(std::max({kLeastRoom, end_ + count, 2 * buffer_.size()}));
}

void FrameAssembler::moveToFront()
{
    std::copy(buffer_.data() + head_, buffer_.data() + end_, buffer_.data());
    end_ -= head_;
    scanned_ -= head_;
    if (firstOpen_ != kNever) {
        firstOpen_ -= head_;
        needed_ -= head_;
    }
    head_ = 0;
}

/// Drops the bytes that can no longer begin a frame.
/// @returns how many.
std::size_t FrameAssembler::dropStale()
{
    find();
    const std::size_t keepFrom = std::min(scanned_, firstOpen_);
    const std::size_t dropped = keepFrom - head_;
    head_ = keepFrom;
    return dropped;
}

}  // namespace protocol
