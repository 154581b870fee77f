#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "station/FrameScanner.h"

/// The forms in which users have frames.
namespace station {

/// Reads text: on each line bytes in hexadecimal, in any of the usual notations, or contents of frames as the tool
/// prints them, `8F 00 [01]`. A '#' begins a comment. Throws UserError.
/// @param name stands before the error, as in "NAME:3: …".
std::vector<ScannedPiece> readHexText(const std::string& name, std::string_view text);

/// Reads arguments of the command line: contents of frames have brackets, the rest are bytes. Throws UserError.
std::vector<ScannedPiece> readHexArguments(const std::vector<std::string>& words);

/// @returns whether `text` has characters that no text of bytes has, so it may be the bytes themselves.
bool isBinary(std::string_view text);

/// @returns whether `text` begins as a capture does.
bool isCapture(std::string_view text);

}  // namespace station
