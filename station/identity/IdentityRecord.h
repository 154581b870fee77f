#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/Frame.h"
#include "protocol/catalogue/Model.h"

/// Identity records: the station writes them into a unit and reads them back.
namespace station::identity {

/// One identity record. Every command of the catalogue's identity group that has a read-back command writes one.
struct Record {
    std::string_view name;  ///< "factory-serial"
    const protocol::catalogue::Command* write = nullptr;
    const protocol::catalogue::Command* read = nullptr;
    /// The unit only reports whether it has a value.
    bool presenceOnly = false;
    /// No two units have the same value.
    bool unique = false;
    /// The name space in which a value is unique; both kinds of address share one. Empty if the record is not unique.
    std::string_view space = {};

    /// Its value is an address of 48 bits.
    bool isAddress() const { return write->params.front().type == protocol::catalogue::Type::kHexText; }
};

using Records = std::span<const Record>;

/// @returns the records of the catalogue; they live as long as `groups`.
std::vector<Record> records(protocol::catalogue::Groups groups);

/// @returns nullptr if no record has that name.
const Record* find(Records records, std::string_view name);

/// @returns the record of that name; throws UserError with the nearest name, or all names.
const Record& require(Records records, std::string_view name);

/// @returns an address in upper case, without ':', '-' and spaces.
std::string withoutSeparators(std::string_view address);

/// @returns the value as it is sent: hexadecimal digits in upper case and without separators, characters as they are.
/// Throws UserError for a value that the unit could not send back: empty, too long, or not printable ASCII.
std::string normalise(const Record& record, std::string_view value);

/// @returns the frame that writes a normalised value.
protocol::Frame writeFrame(const Record& record, std::string_view value);

}  // namespace station::identity
