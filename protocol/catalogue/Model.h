#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string_view>

#include "protocol/Frame.h"

/// The station protocol as data: groups, commands, replies and notices. The types here point to texts and arrays that
/// they do not own. The owner is the compiled table, which lives as long as the program, or a Document.
namespace protocol::catalogue {

/// How the wire represents a field. Numbers of several bytes have the high byte first.
enum class Type : std::uint8_t {
    kU8,
    kU16be,
    kU24be,
    kU32be,
    kI32be,
    kBytes,    ///< bare bytes
    kAscii,    ///< characters, without length or end mark
    kHexText,  ///< hexadecimal digits as characters: '0' to '9', 'A' to 'F', 'a' to 'f'
    kRecords,  ///< a sequence of records; the numeric field before it has their number
};

/// A type's name in the catalogue's file, the size of a number in bytes (0: the type is not a number), and the range:
/// of a number its value, of the others their length. The unit's own frames hold no more, and a station cannot verify a
/// longer value.
struct TypeInfo {
    std::string_view name;
    std::size_t size;
    std::int64_t minimum;
    std::int64_t maximum;
};

/// Every type, in the order of Type.
inline constexpr std::array<TypeInfo, 9> kTypes{{
    {"u8", 1, 0, 0xFF},
    {"u16be", 2, 0, 0xFFFF},
    {"u24be", 3, 0, 0xFFFFFF},
    {"u32be", 4, 0, 0xFFFFFFFF},
    {"i32be", 4, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()},
    {"bytes", 0, 0, kMaxParams},
    {"ascii", 0, 0, kMaxParams},
    {"hex", 0, 0, kMaxParams},
    {"records", 0, 0, kMaxParams},
}};

constexpr const TypeInfo& infoOf(Type type)
{
    return kTypes.at(static_cast<std::size_t>(type));
}

/// @returns how many bytes a number of this type takes; 0 for a type that is not a number.
constexpr std::size_t sizeOf(Type type)
{
    return infoOf(type).size;
}

/// A number that has a name.
struct Choice {
    std::int64_t value = 0;
    std::string_view name;
};

/// A second way to write a number: `number × factor` of `unit`. `only` says when it applies; empty for always.
struct Scale {
    double factor = 1;
    std::string_view unit;
    std::string_view only;
};

struct Field {
    std::string_view name;
    Type type = Type::kU8;
    std::string_view meaning;
    /// The size of one step of the number; empty for a bare number.
    std::string_view unit;
    std::optional<Scale> scale;
    /// Range of a number, both ends included; the type's range if the catalogue has none. For bytes and texts the
    /// number of bytes, for records the number of records.
    std::int64_t minimum = 0;
    std::int64_t maximum = 0;
    std::span<const Choice> choices;
    /// Whether a number without a name in `choices` is legal too.
    bool open = true;
    /// Whether the frame may end before this field.
    bool optional = false;
    /// One value as a user would write it.
    std::string_view example;
    /// The fields of one record: numbers only.
    std::span<const Field> fields;
    /// Whether the value is masked wherever it is shown or recorded. Texts and bytes only.
    bool secret = false;
    /// Whether a text or bytes of another length or other characters are legal too, only unusual.
    bool lenient = false;
};

/// A frame of the head unit.
struct Reply {
    /// cmd_one and cmd_two as on the wire, bit 7 of cmd_one included.
    std::uint8_t cmdOne = 0;
    std::uint8_t cmdTwo = 0;
    /// The case in which this reply comes; empty for the reply that always comes.
    std::string_view when;
    std::span<const Field> fields;
};

enum class Access : std::uint8_t { kRead, kWrite };

struct Command {
    std::uint8_t cmdOne = 0;
    std::uint8_t cmdTwo = 0;
    std::string_view key;
    std::string_view title;
    std::string_view meaning;
    Access access = Access::kRead;
    /// Whether the station cannot undo it, or it ends the unit's work.
    bool destructive = false;
    /// Whether sending it twice has the effect of sending it once. Only then the station may send it again after a
    /// reconnect.
    bool repeatable = true;
    /// The least number of parameter bytes with which the head unit acts.
    std::size_t minimumParams = 0;
    std::span<const Field> params;
    /// The immediate replies, the usual one first. Empty: the command has none.
    std::span<const Reply> replies;
    /// The case in which a working unit does not reply. Empty: it always replies.
    std::string_view silentWhen;
    /// Later replies, which the head unit sends when its HMI or middleware has an answer.
    std::span<const Reply> later;
    /// Full key, GROUP.COMMAND, of the command that reads back what this one wrote; empty for none.
    std::string_view readBack;
    /// The name space in which only one unit has the value that it writes; empty: several units may have the same.
    std::string_view unique;
};

/// A frame that the head unit sends on its own.
struct Notice {
    std::uint8_t cmdOne = 0;
    std::uint8_t cmdTwo = 0;
    std::string_view key;
    std::string_view title;
    std::string_view meaning;
    std::span<const Field> fields;
};

struct Group {
    std::uint8_t code = 0;
    std::string_view key;
    std::string_view title;
    std::string_view meaning;
    std::span<const Command> commands;
    std::span<const Notice> notices;
};

using Groups = std::span<const Group>;

}  // namespace protocol::catalogue
