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

/// Makes the frame of a command out of values by name. A value is a number (decimal, 0x hexadecimal), the name of a
/// choice, a number with the unit of the field's scale ("87.5MHz"), text, bytes in hexadecimal ("00 1A 7D" or
/// "00:1A:7D"), or records ("5:35 9:28"). It is checked against the catalogue's range as it was written, before any
/// conversion. Parameters that the catalogue calls optional may be left out from the end. Throws UserError for an
/// unknown, missing or doubled name, and for a value out of its range.
Frame encode(const Command& command, std::span<const Argument> arguments);

struct DecodedField;
using Record = std::vector<DecodedField>;

/// A number, a text (also hexadecimal text), bytes, or records.
using Value = std::variant<std::int64_t, std::string, std::vector<std::uint8_t>, std::vector<Record>>;

struct DecodedField {
    const Field* field = nullptr;
    Value value;
    /// What is wrong with the value, as in "12 is out of range 0 to 3"; empty when nothing is.
    std::string problem;

    /// @returns the name that the catalogue has for the number, empty for none.
    std::string_view choice() const;
};

/// What a frame means. Decoding never fails: what the catalogue does not know stays bytes.
struct Decoded {
    /// The command that the frame is, or that it answers; nullptr when unknown.
    const Command* command = nullptr;
    /// What of the head unit's frames it is; at most one of them is set.
    const Reply* reply = nullptr;
    const Notice* notice = nullptr;
    std::vector<DecodedField> fields;
    /// Parameter bytes beyond the fields; all of them when the frame is unknown.
    std::vector<std::uint8_t> rest;
    /// What does not fit the catalogue, one line each: a field cut short, a value out of range, bytes left over in
    /// what the head unit sent. (Bytes behind a request's fields are legal: the unit ignores them.)
    std::vector<std::string> problems;

    bool known() const { return command != nullptr || notice != nullptr; }
};

/// Decodes what a station sends.
Decoded decodeRequest(Groups groups, const Frame& frame);

/// Decodes what a head unit sends.
/// @param asked the command that the frame answers, when the reader knows; two commands may share a reply's code.
Decoded decodeFromUnit(Groups groups, const Frame& frame, const Command* asked = nullptr);

/// What stands for each byte of a secret.
inline constexpr std::uint8_t kMask = '*';

/// @returns whether the command or one of its replies holds a secret field.
bool hasSecret(const Command& command);

/// Masks the secret fields of a frame of either side; its length stays.
/// @returns whether there was anything to mask.
bool maskSecrets(Groups groups, Frame& frame);

/// @returns a field's value as one word or quoted text: `1 (up)`, `8750 (87.5 MHz on FM)`, `"HeadUnit"`,
/// `00 1A 7D DA 71 13`, `[{number=5 signal=35}, …]`, `**** (masked)` of a secret. Never contains control characters.
std::string format(const DecodedField& field);

/// @returns a '*' for each byte of a secret; empty for a field that is not, and for a secret without bytes.
std::string maskOf(const DecodedField& field);

/// @returns one line without the frame's bytes: `tuner.frequency: frequency=9470 (94.7 MHz on FM)`; what is unknown as
/// `8F 77: 01 02`; problems follow in parentheses, marked with "!".
std::string format(Groups groups, const Decoded& decoded, const Frame& frame);

}  // namespace protocol::catalogue
