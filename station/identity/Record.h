#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/Frame.h"
#include "protocol/catalogue/Model.h"

/// The records that tell one unit from another: what the station writes into it and reads back.
namespace station::identity {

/// One record, as the catalogue's identity group has it: every command with a read-back partner writes one.
struct Record {
    std::string_view name;  ///< "factory-serial"
    const protocol::catalogue::Command* write = nullptr;
    const protocol::catalogue::Command* read = nullptr;
    /// The unit only tells whether there is one.
    bool presenceOnly = false;
    /// No two units have the same.
    bool unique = false;
    /// Within what they have not: the two kinds of address are one name space. Empty when several may have the same.
    std::string_view space = {};

    /// Its value is an address of 48 bits.
    bool isAddress() const { return write->params.front().type == protocol::catalogue::Type::kHexText; }
};

using Records = std::span<const Record>;

/// @returns the records of the catalogue; they live as long as `groups`.
std::vector<Record> records(protocol::catalogue::Groups groups);

/// @returns nullptr when there is none of that name.
const Record* find(Records records, std::string_view name);

/// @returns the record of that name; throws std::invalid_argument with the names that there are.
const Record& require(Records records, std::string_view name);

/// @returns the value as it is sent: hexadecimal digits in upper case and without separators, characters as they are.
/// Throws std::invalid_argument, without the record's name, for what the unit could not give back: no characters,
/// too many, others than printable ASCII.
std::string normalise(const Record& record, std::string_view value);

/// @returns the frame that writes a value that was normalised.
protocol::Frame writeFrame(const Record& record, std::string_view value);

}  // namespace station::identity
