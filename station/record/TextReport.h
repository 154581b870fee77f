#pragma once

#include <string>

#include "protocol/catalogue/Model.h"
#include "station/record/RunRecord.h"

namespace station::record {

struct TextStyle {
    bool colour = false;
    /// Shows the frames of every step, not only of those that went wrong.
    bool allFrames = false;
};

/// @returns the run for a terminal: what went wrong first, then every step.
/// @param groups what the frames are put into words with
std::string textReport(const Run& run, protocol::catalogue::Groups groups, TextStyle style);

/// @returns a verdict in its colour.
std::string coloured(Verdict verdict, bool colour);

}  // namespace station::record
