#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "protocol/catalogue/Model.h"

/// The catalogue as text and as JSON.
namespace programs::station_tool {

/// @returns one line for each command and notice of all groups: code, key, title.
std::string listText(protocol::catalogue::Groups groups);

/// @returns the group's commands and notices, one line each, with parameters and replies.
std::string groupText(const protocol::catalogue::Group& group);

/// @returns everything about one command, with an example that can be typed.
std::string commandText(protocol::catalogue::Groups groups, const protocol::catalogue::Command& command);
std::string noticeText(protocol::catalogue::Groups groups, const protocol::catalogue::Notice& notice);

nlohmann::ordered_json groupJson(const protocol::catalogue::Group& group);
nlohmann::ordered_json commandJson(protocol::catalogue::Groups groups, const protocol::catalogue::Command& command);
nlohmann::ordered_json noticeJson(protocol::catalogue::Groups groups, const protocol::catalogue::Notice& notice);

/// @returns "u16be", "ascii", …
const char* typeName(protocol::catalogue::Type type);

}  // namespace programs::station_tool
