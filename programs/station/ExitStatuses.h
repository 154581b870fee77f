#pragma once

#include <array>
#include <string>

#include "programs/station/Tool.h"

namespace programs::station_tool {

struct ExitStatus {
    int status;
    const char* meaning;
};

/// What the tool's exit statuses mean, for help and manual.
inline constexpr std::array kExitStatuses{
    ExitStatus{kPassed, "done; of a plan: all passed"},
    ExitStatus{kFailed, "failed; of a plan: a limit was missed"},
    ExitStatus{kWrongUse, "wrong use, or a file with a mistake in it"},
    ExitStatus{kNoAnswer, "no answer in time"},
    ExitStatus{kInterrupted, "interrupted"},
    ExitStatus{kNothingRun, "nothing was run"},
    ExitStatus{kError, "of a plan: a step ended in an error"},
    ExitStatus{kNotRecorded, "the results could not be written"},
    ExitStatus{kPortUnavailable, "the port is missing or busy"},
    ExitStatus{kLinkFailed, "the link failed while it was used"},
    ExitStatus{kReadBackDiffers, "what was read back differs from what was written"},
};

/// @returns them as a block of text, one a line.
std::string exitStatusText();

}  // namespace programs::station_tool
