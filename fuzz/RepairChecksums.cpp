#include "fuzz/Fuzz.h"
#include "protocol/Frame.h"

namespace fuzz {

void repairChecksums(std::span<std::uint8_t> bytes)
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

}  // namespace fuzz
