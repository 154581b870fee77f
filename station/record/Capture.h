#pragma once

#include <string>

#include "protocol/catalogue/Model.h"
#include "station/record/RunRecord.h"

namespace station::record {

/// Name of the file in a run's folder.
inline constexpr const char* kTraceFile = "trace.pcapng";

/// @returns everything that passed on the line, as a pcapng capture with each frame's meaning as its comment.
/// @param groups what the frames are put into words with
std::string capture(const Run& run, protocol::catalogue::Groups groups);

}  // namespace station::record
