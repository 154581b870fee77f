#include "protocol/Frame.h"

#include <algorithm>
#include <numeric>

namespace protocol {

std::uint16_t checksum(std::uint8_t length, std::uint8_t cmdOne, std::uint8_t cmdTwo, Bytes params)
{
    const std::uint32_t head = std::uint32_t{length} + cmdOne + cmdTwo;
    const std::uint32_t sum = std::accumulate(params.begin(), params.end(), head);
    return static_cast<std::uint16_t>(0 - sum);
}

std::size_t encode(std::span<std::uint8_t> out, std::uint8_t cmdOne, std::uint8_t cmdTwo, Bytes params)
{
    std::ranges::fill(out, std::uint8_t{0});
    const std::size_t frame = frameLength(params.size());
    if (frame > out.size() || params.size() > kMaxStationParams)
        return 0;

    const auto length = static_cast<std::uint8_t>(params.size() + 2);
    out[0] = kHeader1;
    out[1] = kHeader2;
    out[kLengthOffset] = length;
    out[kCmdOneOffset] = cmdOne;
    out[kCmdTwoOffset] = cmdTwo;
    std::copy(params.begin(), params.end(), out.begin() + kParamsOffset);

    const std::uint16_t check = checksum(length, cmdOne, cmdTwo, params);
    out[frame - 2] = static_cast<std::uint8_t>(check >> 8);
    out[frame - 1] = static_cast<std::uint8_t>(check & 0xFF);
    return frame;
}

}  // namespace protocol
