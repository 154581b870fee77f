#include "protocol/Frame.h"

#include <algorithm>

namespace protocol {

std::uint16_t checksum(std::uint8_t length, std::uint8_t cmdOne, std::uint8_t cmdTwo, Bytes params)
{
    return static_cast<std::uint16_t>(0 - (std::uint32_t{length} + cmdOne + cmdTwo + sumOf(params)));
}

std::size_t encode(std::span<std::uint8_t> out, std::uint8_t cmdOne, std::uint8_t cmdTwo, Bytes params)
{
    const std::size_t frame = frameLength(params.size());
    if (frame > out.size() || params.size() > kMaxStationParams) {
        std::ranges::fill(out, std::uint8_t{0});
        return 0;
    }

    const auto length = static_cast<std::uint8_t>(params.size() + 2);
    out[frame - kChecksumSize - 1] = 0;  // where the padding byte is, if there is one; else it is written again below
    out[0] = kHeader1;
    out[1] = kHeader2;
    out[kLengthOffset - 1] = 0;
    out[kLengthOffset] = length;
    out[kCmdOneOffset] = cmdOne;
    out[kCmdTwoOffset] = cmdTwo;
    std::copy(params.begin(), params.end(), out.begin() + kParamsOffset);

    const std::uint16_t check = checksum(length, cmdOne, cmdTwo, params);
    out[frame - 2] = static_cast<std::uint8_t>(check >> 8);
    out[frame - 1] = static_cast<std::uint8_t>(check & 0xFF);
    std::ranges::fill(out.subspan(frame), std::uint8_t{0});
    return frame;
}

}  // namespace protocol
