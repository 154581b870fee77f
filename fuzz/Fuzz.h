#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "protocol/Frame.h"

namespace fuzz {

/// A target throws this if the service did something that it must never do.
class Finding : public std::logic_error
{
public:
    using std::logic_error::logic_error;
};

/// Throws a Finding unless `holds`.
inline void expect(bool holds, const std::string& what)
{
    if (!holds) {
        throw Finding(what);
    }
}

/// Sets a valid checksum at every place of `bytes` that contains a complete frame otherwise. By chance, hardly any
/// mutation gets that far.
inline void repairChecksums(std::span<std::uint8_t> bytes)
{
    using namespace protocol;
    for (std::size_t start = 0; start + kParamsOffset < bytes.size(); ++start) {
        const std::uint8_t length = bytes[start + kLengthOffset];
        if (bytes[start] != kHeader1 || bytes[start + 1] != kHeader2 || length < 2 || length == 0xFF) {
            continue;
        }
        const std::size_t size = frameLength(length - std::size_t{2});
        if (start + size > bytes.size()) {
            continue;
        }
        const auto padded = bytes.subspan(start + kParamsOffset, size - kParamsOffset - kChecksumSize);
        const std::uint16_t check =
            checksum(length, bytes[start + kCmdOneOffset], bytes[start + kCmdTwoOffset], padded);
        bytes[start + size - 2] = static_cast<std::uint8_t>(check >> 8);
        bytes[start + size - 1] = static_cast<std::uint8_t>(check & 0xFF);
        start += size - 1;
    }
}

/// Reads an input from its beginning to its end. After the end, all numbers are 0.
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

    /// @returns the next `count` bytes, fewer at the end.
    std::span<const std::uint8_t> bytes(std::size_t count)
    {
        const auto taken = left_.first(std::min(count, left_.size()));
        left_ = left_.subspan(taken.size());
        return taken;
    }

private:
    std::span<const std::uint8_t> left_;
};

/// Removes the text before the first `separator` from `text`, and the separator.
/// @returns the removed text; all of it if there is no separator.
inline std::string takeWord(std::string_view& text, char separator)
{
    const std::size_t end = text.find(separator);
    const std::string word(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return word;
}

}  // namespace fuzz

/// One target: takes any bytes. libFuzzer and the seeded tests (SeededTest.cpp) both call this.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
