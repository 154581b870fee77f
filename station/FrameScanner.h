#pragma once

#include <cstdint>
#include <vector>

#include "protocol/Frame.h"

namespace station {

/// A piece of a recorded stream.
struct ScannedPiece {
    enum class Kind : std::uint8_t {
        kFrame,       ///< a sound frame
        kCorrupt,     ///< a frame whose checksum is wrong
        kGarbage,     ///< bytes that belong to no frame
        kIncomplete,  ///< the beginning of a frame whose end is missing
    };

    Kind kind = Kind::kGarbage;
    /// Only for frames, sound or not.
    protocol::Frame frame;
    /// As they stood in the stream: pieces put one behind the other are the stream again.
    std::vector<std::uint8_t> bytes;
};

/// Cuts a recorded stream into frames and what is between them, as a receiver would.
std::vector<ScannedPiece> scanFrames(protocol::Bytes stream);

}  // namespace station
