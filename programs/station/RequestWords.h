#pragma once

#include <string>
#include <vector>

#include "protocol/Frame.h"
#include "protocol/catalogue/Model.h"

namespace programs::station_tool {

/// A command as the user wrote it.
struct Request {
    protocol::Frame frame;
    /// What the catalogue knows of it; nullptr for nothing.
    const protocol::catalogue::Command* command = nullptr;
    /// Whether it was written by name: GROUP.COMMAND NAME=VALUE…; else it was bytes.
    bool named = false;

    /// @returns "tuner.play", or "02 00" for a command that the catalogue does not know.
    std::string title() const;
};

/// Reads GROUP.COMMAND NAME=VALUE…, or CMD_ONE CMD_TWO BYTE… in hexadecimal. Throws WrongUse.
/// @param command the first word.
Request parseRequest(const std::string& command, const std::vector<std::string>& arguments);

}  // namespace programs::station_tool
