#include "protocol/Frame.h"

#include <gtest/gtest.h>

#include "protocol/FrameAssembler.h"
#include "tests/properties/WireGenerators.h"

namespace {

using properties::Bytes;

/// What a receiver makes of bytes that should be one frame.
std::optional<protocol::Frame> decoded(std::span<const std::uint8_t> bytes)
{
    protocol::FrameAssembler assembler;
    assembler.append(bytes);
    auto received = assembler.next();
    if (!received || !received->checksumHolds || assembler.size() != 0)
        return std::nullopt;
    const auto params = received->params();
    return protocol::Frame{received->cmdOne, received->cmdTwo, {params.begin(), params.end()}};
}

/// The first `count` bytes, which a frame is to carry.
Bytes first(const Bytes& bytes, std::size_t count)
{
    return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count)};
}

RC_GTEST_PROP(FrameProperties, WhatTheUnitEncodesIsDecodedWithEveryNumberOfParameters, ())
{
    const auto cmdOne = *properties::anyByte();
    const auto cmdTwo = *properties::anyByte();
    const auto bytes = *rc::gen::container<Bytes>(protocol::kMaxParams, properties::anyByte());

    for (std::size_t count = 0; count <= protocol::kMaxParams; ++count) {
        const Bytes params = first(bytes, count);
        protocol::FrameBuffer buffer;
        const std::size_t length = protocol::encode(buffer, cmdOne, cmdTwo, params);

        RC_ASSERT(decoded(std::span(buffer).first(length)) == (protocol::Frame{cmdOne, cmdTwo, params}));
    }
}

RC_GTEST_PROP(FrameProperties, WhatAStationEncodesIsDecodedWithEveryNumberOfParameters, ())
{
    const auto cmdOne = *properties::anyByte();
    const auto cmdTwo = *properties::anyByte();
    const auto bytes = *rc::gen::container<Bytes>(protocol::kMaxStationParams, properties::anyByte());

    for (std::size_t count = 0; count <= protocol::kMaxStationParams; ++count) {
        const protocol::Frame frame{cmdOne, cmdTwo, first(bytes, count)};

        RC_ASSERT(decoded(properties::encoded(frame)) == frame);
    }
}

RC_GTEST_PROP(FrameProperties, ASoundFrameWithOneByteChangedIsNotDecoded, (const protocol::Frame& frame))
{
    Bytes bytes = properties::encoded(frame);
    const auto at = *properties::evenly<std::size_t>(4, bytes.size());
    const auto change = *properties::evenly(1, 256);
    bytes[at] = static_cast<std::uint8_t>(bytes[at] ^ change);
    RC_PRE(properties::headerPlaces(bytes).size() == 1);

    RC_ASSERT(decoded(bytes) == std::nullopt);
}

}  // namespace
