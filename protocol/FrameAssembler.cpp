#include "protocol/FrameAssembler.h"

#include <algorithm>
#include <cstring>

namespace protocol {

namespace {

constexpr std::size_t kHeadSize = kLengthOffset + 1;  // what must be there to know a frame's length

// WIRE: the padded length is an 8-bit number, so that of 255 is 0: such a frame counts as complete with 6 bytes.
std::uint8_t paddedLength(std::uint8_t length)
{
    return static_cast<std::uint8_t>(length + length % 2);
}

// WIRE: with a padded length of 0 the count of bytes to copy wraps and is capped at the parameter area.
std::size_t copyCount(std::uint8_t length)
{
    const std::uint8_t padded = paddedLength(length);
    return padded == 0 ? std::tuple_size_v<decltype(ReceivedFrame::area)> : padded - std::size_t{2};
}

}  // namespace

std::size_t FrameAssembler::append(Bytes bytes)
{
    compact();
    buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
    findCandidates();
    if (size() <= kLimit)
        return 0;

    const std::size_t keepFrom = candidates_.empty() ? scanned_ : candidates_.front().start;
    const std::size_t dropped = keepFrom - head_;
    head_ = keepFrom;
    compact();
    return dropped;
}

// Searches the bytes that are new. One that may begin a header whose length byte has not come yet is left for the next
// time.
void FrameAssembler::findCandidates()
{
    while (scanned_ + kHeadSize <= buffer_.size()) {
        const std::uint8_t* const from = buffer_.data() + scanned_;
        const std::size_t count = buffer_.size() - kHeadSize + 1 - scanned_;
        const void* const found = std::memchr(from, kHeader1, count);
        if (found == nullptr) {
            scanned_ += count;
            return;
        }
        const std::size_t start = scanned_ + static_cast<std::size_t>(static_cast<const std::uint8_t*>(found) - from);
        const std::uint8_t length = buffer_[start + kLengthOffset];
        if (buffer_[start + 1] == kHeader2 && length >= 2) {
            const std::size_t needed = start + kParamsOffset + paddedLength(length);
            candidates_.push_back({start, needed});
            nextNeeded_ = std::min(nextNeeded_, needed);
        }
        scanned_ = start + 1;
    }
}

std::optional<ReceivedFrame> FrameAssembler::next()
{
    if (buffer_.size() < nextNeeded_)
        return std::nullopt;
    // A candidate that is not complete begins in the last 260 bytes, so there are few to pass over.
    const auto complete = std::find_if(candidates_.begin(), candidates_.end(),
                                       [this](const Candidate& c) { return c.needed <= buffer_.size(); });
    return cut(complete->start);
}

ReceivedFrame FrameAssembler::cut(std::size_t start)
{
    ReceivedFrame frame;
    frame.length = buffer_[start + kLengthOffset];
    frame.cmdOne = buffer_[start + kCmdOneOffset];
    frame.cmdTwo = buffer_[start + kCmdTwoOffset];

    const std::size_t count = copyCount(frame.length);
    const std::size_t params = start + kParamsOffset;
    const std::size_t present = std::min(count, buffer_.size() - params);
    std::copy_n(buffer_.begin() + static_cast<std::ptrdiff_t>(params), present, frame.area.begin());

    const std::size_t check = params + count;
    frame.receivedChecksum = static_cast<std::uint16_t>(byteOrZero(check) << 8 | byteOrZero(check + 1));
    // WIRE: what is received is summed with its padding byte, so that one which is not 0 spoils the checksum.
    frame.checksumHolds =
        frame.receivedChecksum == checksum(frame.length, frame.cmdOne, frame.cmdTwo, Bytes(frame.area).first(count));

    consumeUpTo(std::min(check + kChecksumSize, buffer_.size()));
    return frame;
}

void FrameAssembler::consumeUpTo(std::size_t end)
{
    head_ = end;
    scanned_ = std::max(scanned_, end);
    while (!candidates_.empty() && candidates_.front().start < end)
        candidates_.pop_front();
    nextNeeded_ = kNever;
    refreshNextNeeded();
}

void FrameAssembler::refreshNextNeeded()
{
    for (const Candidate& candidate : candidates_) {
        nextNeeded_ = std::min(nextNeeded_, candidate.needed);
        if (nextNeeded_ <= buffer_.size())
            return;
    }
}

// Moves the unconsumed bytes to the front when at least as many have been consumed, so that a byte is moved once on
// average and a burst of frames costs one move.
void FrameAssembler::compact()
{
    if (head_ == 0 || head_ < size())
        return;
    buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(head_));
    scanned_ -= head_;
    for (Candidate& candidate : candidates_) {
        candidate.start -= head_;
        candidate.needed -= head_;
    }
    if (nextNeeded_ != kNever)
        nextNeeded_ -= head_;
    head_ = 0;
}

}  // namespace protocol
