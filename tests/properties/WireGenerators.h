#pragma once

#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

#include "protocol/Frame.h"

// What the properties are tried on.

namespace properties {

using Bytes = std::vector<std::uint8_t>;

/// A number from `least` to below `limit`, each as likely as any other: rapidcheck's own begins with small ones.
template <class Number>
rc::Gen<Number> evenly(Number least, Number limit)
{
    return rc::gen::resize(rc::kNominalSize, rc::gen::inRange(least, limit));
}

inline rc::Gen<std::uint8_t> anyByte()
{
    return rc::gen::map(evenly(0, 256), [](int byte) { return static_cast<std::uint8_t>(byte); });
}

/// A byte of those that frames are made of.
inline rc::Gen<std::uint8_t> frameLikeByte()
{
    return rc::gen::element<std::uint8_t>(0x2A, 0xA2, 0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x0F, 0x10, 0xFD, 0xFE, 0xFF);
}

/// A frame's content, as a station may send it.
inline rc::Gen<protocol::Frame> anyFrame()
{
    const auto params =
        rc::gen::mapcat(rc::gen::weightedOneOf<int>(
                            {{6, evenly(0, 12)}, {2, evenly(0, 253)}, {1, rc::gen::element(245, 246, 251, 252)}}),
                        [](int count) {
                            return rc::gen::container<Bytes>(static_cast<std::size_t>(count),
                                                             rc::gen::oneOf(anyByte(), frameLikeByte()));
                        });
    return rc::gen::build<protocol::Frame>(rc::gen::set(&protocol::Frame::cmdOne, anyByte()),
                                           rc::gen::set(&protocol::Frame::cmdTwo, anyByte()),
                                           rc::gen::set(&protocol::Frame::params, params));
}

/// The bytes with no header in them.
inline Bytes withoutHeaders(Bytes bytes)
{
    for (std::size_t i = 1; i < bytes.size(); ++i)
        if (bytes[i - 1] == 0x2A && bytes[i] == 0xA2)
            bytes[i] = 0xA3;
    return bytes;
}

/// Frames whose content contains no header.
inline rc::Gen<std::vector<protocol::Frame>> quietFrames()
{
    const auto quiet = rc::gen::map(anyFrame(), [](protocol::Frame frame) {
        Bytes content = {frame.cmdOne, frame.cmdTwo};
        content.insert(content.end(), frame.params.begin(), frame.params.end());
        content = withoutHeaders(content);
        return protocol::Frame{content[0], content[1], {content.begin() + 2, content.end()}};
    });
    return rc::gen::container<std::vector<protocol::Frame>>(quiet);
}

inline Bytes encoded(const protocol::Frame& frame)
{
    protocol::StationFrameBuffer buffer;
    const std::size_t length = protocol::encode(buffer, frame.cmdOne, frame.cmdTwo, frame.params);
    return {buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(length)};
}

/// Pieces in which a stream arrives: `sizes` of them, the rest in one.
inline std::vector<Bytes> split(const Bytes& stream, const std::vector<std::size_t>& sizes)
{
    std::vector<Bytes> chunks;
    auto from = stream.begin();
    for (const std::size_t size : sizes) {
        const auto left = static_cast<std::size_t>(stream.end() - from);
        const auto to = from + static_cast<std::ptrdiff_t>(std::min(size, left));
        chunks.emplace_back(from, to);
        from = to;
    }
    chunks.emplace_back(from, stream.end());
    return chunks;
}

/// Sizes of chunks, most of them small.
inline rc::Gen<std::vector<std::size_t>> chunkSizes()
{
    return rc::gen::container<std::vector<std::size_t>>(
        rc::gen::weightedOneOf<std::size_t>({{4, evenly<std::size_t>(0, 5)}, {2, evenly<std::size_t>(5, 300)}}));
}

/// @returns where the two header bytes stand next to each other.
inline std::vector<std::size_t> headerPlaces(std::span<const std::uint8_t> bytes)
{
    std::vector<std::size_t> places;
    for (std::size_t i = 1; i < bytes.size(); ++i)
        if (bytes[i - 1] == 0x2A && bytes[i] == 0xA2)
            places.push_back(i - 1);
    return places;
}

}  // namespace properties

template <>
struct rc::Arbitrary<protocol::Frame> {
    static Gen<protocol::Frame> arbitrary() { return properties::anyFrame(); }
};

namespace protocol {

inline void showValue(const Frame& frame, std::ostream& out)
{
    out << std::hex << int{frame.cmdOne} << ' ' << int{frame.cmdTwo} << " [";
    for (const std::uint8_t byte : frame.params)
        out << ' ' << int{byte};
    out << " ]" << std::dec;
}

}  // namespace protocol
