#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "station/FrameScanner.h"

/// Frames as people write them.
namespace station {

/// Reads text: on each line bytes in hexadecimal, in any of the usual notations, or contents of frames as the tool
/// prints them, `8F 00 [01]`. A '#' begins a comment.
class HexText
{
public:
    /// Throws UserError, without the place of the line.
    void add(std::string_view line);

    /// As of FrameScanner.
    void end() { scanner_.end(); }
    std::vector<ScannedPiece> take();

private:
    bool addContents(std::string_view line);

    FrameScanner scanner_;
    std::vector<ScannedPiece> pieces_;
};

/// Reads arguments of the command line: contents of frames have brackets, the rest are bytes. Throws UserError.
std::vector<ScannedPiece> readHexArguments(const std::vector<std::string>& words);

}  // namespace station
