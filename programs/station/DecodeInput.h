#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "station/FrameScanner.h"

namespace programs::station_tool {

/// Reads a text of bytes: hexadecimal in any of the usual notations, or a frame's content as the tool prints it,
/// `8F 00 [01]`, one a line. What stands behind a '#' is passed over.
/// @param name is put in front of what is wrong, as in "NAME:3: …"; empty for a single line.
/// Throws WrongUse.
std::vector<station::ScannedPiece> readHexText(const std::string& name, std::string_view text);

/// @returns whether `text` cannot be a text of bytes, but may be the bytes themselves.
bool isBinary(std::string_view text);

/// @returns whether `text` begins as a capture does.
bool isCapture(std::string_view text);

}  // namespace programs::station_tool
