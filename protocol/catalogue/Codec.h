#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "protocol/Errors.h"
#include "protocol/Frame.h"
#include "protocol/catalogue/Model.h"

namespace protocol::catalogue {

/// NAME=VALUE, taken apart.
using Argument = std::pair<std::string, std::string>;

/// Makes the frame of a command from values by name. A value is a number (decimal, 0x hexadecimal), the name of a
/// choice, a number with the unit of the field's scale ("87.5MHz"), text, bytes in hexadecimal ("00 1A 7D" or
/// "00:1A:7D"), or records ("5:35 9:28"). The value must be in the catalogue's range before any conversion. Optional
/// parameters at the end may be missing. Throws UserError for an unknown, missing or repeated name, and for a value out
/// of its range.
Frame encode(const Command& command, std::span<const Argument> arguments);

struct DecodedField;
using Record = std::vector<DecodedField>;

/// A number, a text (also hexadecimal text), bytes, or records.
using Value = std::variant<std::int64_t, std::string, std::vector<std::uint8_t>, std::vector<Record>>;

struct DecodedField {
    const Field* field = nullptr;
    Value value;
    /// The value's problem, as in "expected 0 to 3, got 12"; empty for a good value.
    std::string problem;

    /// @returns the name that the catalogue has for the number, empty for none.
    std::string_view choice() const;
};

/// The meaning of a frame. Decoding never fails: bytes that the catalogue does not describe stay bytes.
struct Decoded {
    /// The command that the frame is or answers; nullptr if unknown.
    const Command* command = nullptr;
    /// The kind of the head unit's frame; at most one of the two is set.
    const Reply* reply = nullptr;
    const Notice* notice = nullptr;
    std::vector<DecodedField> fields;
    /// Parameter bytes beyond the fields; all parameter bytes of an unknown frame.
    std::vector<std::uint8_t> rest;
    /// Differences from the catalogue, one line each: a field cut short, a value out of range, extra bytes in a frame
    /// of the head unit. (Extra bytes in a request are legal: the unit ignores them.)
    std::vector<std::string> problems;
    /// Legal values that the catalogue calls unusual, one line each.
    std::vector<std::string> remarks;

    bool known() const { return command != nullptr || notice != nullptr; }
};

/// Decodes a station's frame.
Decoded decodeRequest(Groups groups, const Frame& frame);

/// Decodes a head unit's frame.
/// @param asked the command that the frame answers, if known; two commands may share a reply's code.
Decoded decodeFromUnit(Groups groups, const Frame& frame, const Command* asked = nullptr);

/// Replaces each byte of a secret.
inline constexpr std::uint8_t kMask = '*';

/// @returns whether the command or one of its replies holds a secret field.
bool hasSecret(const Command& command);

/// Masks the secret fields of a frame of either side. Keeps its length.
/// @returns whether the frame has a secret.
bool maskSecrets(Groups groups, Frame& frame);

/// @returns a field's value as one word or quoted text: `1 (up)`, `8750 (87.5 MHz on FM)`, `"HeadUnit"`,
/// `00 1A 7D DA 71 13`, `[{number=5 signal=35}, …]`, `**** (masked)` of a secret. Never contains control characters.
std::string format(const DecodedField& field);

/// @returns a '*' for each byte of a secret; empty for other fields and for a secret without bytes.
std::string maskOf(const DecodedField& field);

/// @returns one line without the frame's bytes: `tuner.frequency: frequency=9470 (94.7 MHz on FM)`; an
/// unknown frame as `8F 77: 01 02`. Problems follow in parentheses, marked with "!", and remarks, marked with "note:".
std::string format(Groups groups, const Decoded& decoded, const Frame& frame);

/// @returns one line for a user who wrote `key` in place of a GROUP.COMMAND:
/// "'tuner.pla' is not a command; did you mean 'tuner.play'?"
std::string noSuchCommand(Groups groups, std::string_view key);

/// @returns the legal values of `field` in a few words: "a number from 0 to 65535, or in MHz on FM",
/// "down (0) or up (1)", "12 hexadecimal digits".
std::string describe(const Field& field);

/// @returns "0 to 3"; "12" if both ends are equal.
std::string describeRange(const Field& field);

/// @returns "down (0), up (1) or stop (2)"; empty for a field without choices.
std::string describeChoices(const Field& field);

}  // namespace protocol::catalogue
