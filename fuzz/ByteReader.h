#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

namespace fuzz {

/// Takes an input apart from its beginning to its end. Behind the end all numbers are 0.
class ByteReader
{
public:
    explicit ByteReader(std::span<const std::uint8_t> bytes) : left_(bytes) {}

    bool atEnd() const { return left_.empty(); }

    std::uint8_t byte()
    {
        const auto taken = bytes(1);
        return taken.empty() ? std::uint8_t{0} : taken.front();
    }

    /// A number of two bytes, high byte first.
    std::uint16_t number()
    {
        const unsigned high = byte();
        return static_cast<std::uint16_t>(high << 8 | byte());
    }

    /// The next `count` bytes, fewer at the end.
    std::span<const std::uint8_t> bytes(std::size_t count)
    {
        const auto taken = left_.first(std::min(count, left_.size()));
        left_ = left_.subspan(taken.size());
        return taken;
    }

private:
    std::span<const std::uint8_t> left_;
};

}  // namespace fuzz
