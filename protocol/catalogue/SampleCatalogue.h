#pragma once

#include <array>

#include "protocol/catalogue/Model.h"

/// A small table of groups that has every type of field and every asymmetry once, for tests.
namespace protocol::catalogue::sample {

inline constexpr std::array kDirections{Choice{0, "down"}, Choice{1, "up"}, Choice{2, "store"}};
inline constexpr std::array kBands{Choice{0, "fm"}, Choice{5, "dab"}};
inline constexpr std::array kYesNo{Choice{0, "no"}, Choice{1, "yes"}};

inline constexpr Field kFrequency{.name = "frequency",
                                  .type = Type::kU16be,
                                  .meaning = "in the unit of the band",
                                  .scale = Scale{0.01, "MHz", "on FM"},
                                  .minimum = 100,
                                  .maximum = 10800,
                                  .example = "8750"};

inline constexpr std::array kPlayParams{kFrequency};
inline constexpr std::array kPlayedFields{kFrequency};
inline constexpr std::array kPlayedReplies{Reply{0x82, 0x01, {}, kPlayedFields}};
inline constexpr std::array kActionParams{
    Field{.name = "action", .type = Type::kU8, .maximum = 3, .choices = kDirections, .open = false, .example = "up"}};
inline constexpr std::array kBandParams{Field{.name = "band", .type = Type::kU8, .maximum = 255, .choices = kBands}};
inline constexpr std::array kTunerCommands{
    Command{.cmdOne = 0x02, .cmdTwo = 0x00, .key = "play", .minimumParams = 2, .params = kPlayParams},
    Command{.cmdOne = 0x02, .cmdTwo = 0x01, .key = "frequency", .replies = kPlayedReplies},
    Command{.cmdOne = 0x02, .cmdTwo = 0x02, .key = "band", .minimumParams = 1, .params = kBandParams},
    Command{.cmdOne = 0x02, .cmdTwo = 0x04, .key = "tune", .minimumParams = 1, .params = kActionParams},
};

inline constexpr std::array kResultFields{
    Field{.name = "result", .type = Type::kU8, .maximum = 1, .choices = kYesNo, .open = false}};
inline constexpr std::array kDeleteReplies{Reply{0x82, 0x08, {}, kResultFields}};
inline constexpr std::array kDeleteLater{Reply{0x84, 0x08, {}, kResultFields}};
inline constexpr std::array kAddressFields{
    Field{.name = "address", .type = Type::kBytes, .minimum = 6, .maximum = 6, .example = "00:1A:7D:DA:71:13"}};
inline constexpr std::array kAddressReplies{Reply{0x84, 0x07, {}, kAddressFields}};
inline constexpr std::array kBluetoothCommands{
    Command{.cmdOne = 0x04, .cmdTwo = 0x07, .key = "address", .replies = kAddressReplies},
    Command{.cmdOne = 0x04,
            .cmdTwo = 0x08,
            .key = "delete_pairings",
            .destructive = true,
            .replies = kDeleteReplies,
            .later = kDeleteLater},
    // Sets nothing that there is: it has a bytes field as a parameter.
    Command{.cmdOne = 0x04, .cmdTwo = 0x20, .key = "set_address", .minimumParams = 6, .params = kAddressFields},
};

inline constexpr std::array kSatelliteFields{
    Field{.name = "number", .type = Type::kU8, .maximum = 255},
    Field{.name = "signal", .type = Type::kU24be, .unit = "dB", .maximum = 99}};
inline constexpr std::array kSatellitesFields{
    Field{.name = "count", .type = Type::kU8, .maximum = 20},
    Field{.name = "satellites", .type = Type::kRecords, .maximum = 20, .fields = kSatelliteFields}};
inline constexpr std::array kSatellitesReplies{Reply{0x85, 0x00, {}, kSatellitesFields}};
inline constexpr std::array kPositionFields{
    Field{.name = "latitude",
          .type = Type::kI32be,
          .scale = Scale{1e-6, "deg", ""},
          .minimum = -90000000,
          .maximum = 90000000},
    Field{.name = "time", .type = Type::kU32be, .unit = "s", .maximum = 0xFFFFFFFF}};
inline constexpr std::array kPositionReplies{Reply{0x85, 0x02, {}, kPositionFields}};
inline constexpr std::array kGpsCommands{
    Command{.cmdOne = 0x05, .cmdTwo = 0x00, .key = "satellites", .replies = kSatellitesReplies},
    Command{.cmdOne = 0x05, .cmdTwo = 0x02, .key = "position", .replies = kPositionReplies},
    Command{.cmdOne = 0x05, .cmdTwo = 0x20, .key = "set_position", .minimumParams = 8, .params = kPositionFields},
    Command{.cmdOne = 0x05, .cmdTwo = 0x21, .key = "set_satellites", .params = kSatellitesFields},
};

inline constexpr std::array kPressedFields{Field{.name = "key", .type = Type::kU8, .maximum = 255},
                                           Field{.name = "status", .type = Type::kU8, .maximum = 4, .optional = true}};
inline constexpr std::array kKeyNotices{Notice{0x86, 0x11, "pressed", "Key pressed", "", kPressedFields}};

inline constexpr std::array kSerialFields{
    Field{.name = "serial", .type = Type::kAscii, .minimum = 1, .maximum = 12, .example = "SN123"}};
inline constexpr std::array kPasswordFields{Field{.name = "password", .type = Type::kAscii, .maximum = 246}};
inline constexpr std::array kPasswordReplies{Reply{0x8A, 0x0F, {}, kPasswordFields}};
inline constexpr std::array kMacFields{
    Field{.name = "mac", .type = Type::kHexText, .minimum = 12, .maximum = 12, .example = "001122334455"}};
inline constexpr std::array kMacReplies{Reply{0x8A, 0x12, {}, kMacFields}, Reply{0x8A, 0x0F, "no record", {}}};
inline constexpr std::array kTaggedFields{Field{.name = "tag", .type = Type::kAscii, .maximum = 4}};
inline constexpr std::array kTaggedReplies{Reply{0x8A, 0x30, {}, kTaggedFields}};
inline constexpr std::array kOptionalParams{
    Field{.name = "first", .type = Type::kU8, .maximum = 255, .optional = true},
    Field{.name = "second", .type = Type::kU8, .unit = "km/h", .maximum = 255, .optional = true}};
inline constexpr std::array kShadowReplies{Reply{0x8A, 0x0F, {}, kPasswordFields}};
inline constexpr std::array kAt41{Reply{0x8A, 0x41, {}, {}}};
inline constexpr std::array kAt42{Reply{0x8A, 0x42, {}, {}}};
inline constexpr std::array kLongParams{Field{.name = "text", .type = Type::kAscii, .maximum = 1000}};
inline constexpr std::array kIdentityCommands{
    Command{.cmdOne = 0x0A, .cmdTwo = 0x02, .key = "write_serial", .minimumParams = 1, .params = kSerialFields},
    Command{.cmdOne = 0x0A, .cmdTwo = 0x11, .key = "write_mac", .minimumParams = 12, .params = kMacFields},
    Command{.cmdOne = 0x0A, .cmdTwo = 0x12, .key = "mac", .replies = kMacReplies},
    // These two use the code of the password's reply, one at once, one later.
    Command{.cmdOne = 0x0A, .cmdTwo = 0x33, .key = "shadow", .replies = kShadowReplies},
    Command{.cmdOne = 0x0A, .cmdTwo = 0x34, .key = "late", .later = kShadowReplies},
    Command{.cmdOne = 0x0A, .cmdTwo = 0x0F, .key = "password", .replies = kPasswordReplies},
    // Codes 41 and 42 are shared: 41 by later replies and one at once, 42 by later replies only.
    Command{.cmdOne = 0x0A, .cmdTwo = 0x41, .key = "own-late", .later = kAt41},
    Command{.cmdOne = 0x0A, .cmdTwo = 0x43, .key = "at-once", .replies = kAt41, .later = kAt42},
    Command{.cmdOne = 0x0A, .cmdTwo = 0x42, .key = "own", .later = kAt42},
    Command{.cmdOne = 0x0A, .cmdTwo = 0x30, .key = "tagged", .replies = kTaggedReplies},
    Command{.cmdOne = 0x0A, .cmdTwo = 0x31, .key = "optional", .params = kOptionalParams},
    Command{.cmdOne = 0x0A, .cmdTwo = 0x32, .key = "long", .params = kLongParams},
};

inline constexpr std::array kGroups{
    Group{.code = 0x02, .key = "tuner", .title = "Tuner", .commands = kTunerCommands},
    Group{.code = 0x04, .key = "bluetooth", .title = "Bluetooth", .commands = kBluetoothCommands},
    Group{.code = 0x05, .key = "gps", .title = "GPS", .commands = kGpsCommands},
    Group{.code = 0x06, .key = "keys", .title = "Keys", .notices = kKeyNotices},
    Group{.code = 0x0A, .key = "identity", .title = "Identity", .commands = kIdentityCommands},
};

}  // namespace protocol::catalogue::sample
