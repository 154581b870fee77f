#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "station/FrameScanner.h"

namespace programs::station_tool {

/// Reads a text of bytes: on each line hexadecimal in any of the usual notations, or contents of frames as the tool
/// prints them, `8F 00 [01]`. What stands behind a '#' is passed over.
/// @param name is put in front of what is wrong, as in "NAME:3: …".
/// Throws WrongUse.
std::vector<station::ScannedPiece> readHexText(const std::string& name, std::string_view text);

/// Reads arguments of the command line: those with brackets are contents of frames, what stands between them are bytes.
/// Throws WrongUse.
std::vector<station::ScannedPiece> readHexArguments(const std::vector<std::string>& words);

/// @returns whether `text` cannot be a text of bytes, but may be the bytes themselves.
bool isBinary(std::string_view text);

/// @returns whether `text` begins as a capture does.
bool isCapture(std::string_view text);

}  // namespace programs::station_tool
