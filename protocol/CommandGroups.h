#pragma once

#include <cstdint>

#include "protocol/Frame.h"

namespace protocol {

/// Command groups: cmd_one of what the station sends.
enum Group : std::uint8_t {
    kSource = 0x00,
    kEq = 0x01,
    kTuner = 0x02,
    kMedia = 0x03,
    kBluetooth = 0x04,
    kGps = 0x05,
    kHardKeyAndDisplay = 0x06,
    kInfoAcquire = 0x07,
    kCarState = 0x09,
    kHuInfoWrite = 0x0A,
    kOther = 0x0E,
    kTestMode = 0x0F,
    kWifiConnect = 0x10,
    kPhoneConnected = 0x11,
};

/// @returns cmd_one of what the head unit sends in a group.
constexpr std::uint8_t replyGroup(Group group)
{
    return static_cast<std::uint8_t>(group | kReplyBit);
}

}  // namespace protocol
