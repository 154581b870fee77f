#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <span>
#include <vector>

namespace tests {

/// What a receiver sees of a frame.
struct SeenFrame {
    std::uint8_t cmdOne;
    std::uint8_t cmdTwo;
    std::vector<std::uint8_t> params;
    std::uint16_t checksum;  // as received
    bool sound;

    bool operator==(const SeenFrame&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const SeenFrame& frame)
{
    out << std::hex << int{frame.cmdOne} << ' ' << int{frame.cmdTwo} << " [";
    for (const std::uint8_t byte : frame.params) {
        out << ' ' << int{byte};
    }
    return out << " ] checksum " << frame.checksum << (frame.sound ? "" : ", bad") << std::dec;
}

/// A receiver that follows the protocol step by step: it searches one buffer from the beginning for each frame. Slow,
/// and independent of the codec that the tests compare with it.
class PlainReceiver
{
public:
    /// Takes one chunk and returns every complete frame.
    std::vector<SeenFrame> feed(std::span<const std::uint8_t> chunk)
    {
        buffer_.insert(buffer_.end(), chunk.begin(), chunk.end());
        std::vector<SeenFrame> seen;
        if (buffer_.size() <= 7) {
            return seen;
        }
        std::size_t i = 0;
        while (i < buffer_.size()) {
            if (!frameStartsAt(i)) {
                ++i;
                continue;
            }
            seen.push_back(frameAt(i));
            i = 0;
        }
        return seen;
    }

    const std::vector<std::uint8_t>& buffer() const { return buffer_; }

private:
    /// @returns the byte at i; 0 after the end.
    unsigned at(std::size_t i) const { return i < buffer_.size() ? buffer_[i] : 0U; }

    bool frameStartsAt(std::size_t i) const
    {
        if (at(i) != 0x2A || at(i + 1) != 0xA2) {
            return false;
        }
        if (!(i + 3 < buffer_.size())) {
            return false;
        }
        const unsigned length = at(i + 3);
        if (length < 2) {
            return false;
        }
        const unsigned padded = (length % 2 == 0 ? length : length + 1) & 0xFFU;  // 8 bits: 255 becomes 0
        return i + 5 + padded < buffer_.size();
    }

    /// Removes the frame at i, and everything before it, from the buffer.
    SeenFrame frameAt(std::size_t i)
    {
        const unsigned length = at(i + 3);
        const unsigned padded = (length % 2 == 0 ? length : length + 1) & 0xFFU;
        const std::size_t count = padded >= 2 ? padded - 2U : 256U;  // 0 - 2 wraps, and the area has 256 bytes
        std::vector<std::uint8_t> area(256, 0);
        unsigned sum = length + at(i + 4) + at(i + 5);
        for (std::size_t k = 0; k < count; ++k) {
            area[k] = static_cast<std::uint8_t>(at(i + 6 + k));
            sum += area[k];
        }
        const unsigned checksum = at(i + 6 + count) * 256U + at(i + 7 + count);
        SeenFrame frame{static_cast<std::uint8_t>(at(i + 4)),
                        static_cast<std::uint8_t>(at(i + 5)),
                        {},
                        static_cast<std::uint16_t>(checksum),
                        checksum == ((0x10000U - sum) & 0xFFFFU)};
        frame.params.assign(area.begin(), area.begin() + static_cast<std::ptrdiff_t>(length - 2));
        const std::size_t end = i + 8 + count;
        if (end < buffer_.size()) {
            buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(end));
        } else {
            buffer_.clear();
        }
        return frame;
    }

    std::vector<std::uint8_t> buffer_;
};

}  // namespace tests
