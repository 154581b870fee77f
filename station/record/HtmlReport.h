#pragma once

#include <string>

#include "protocol/catalogue/Model.h"
#include "station/record/RunRecord.h"

namespace station::record {

/// Name of the file in a run's folder.
inline constexpr const char* kHtmlFile = "report.html";

/// @returns the run as one page that needs nothing beside it, no script to be read, and no knowledge of the tool: what
/// went wrong first, with what was expected and what came. It is well-formed XML, too.
/// @param groups what the frames are put into words with
std::string htmlReport(const Run& run, protocol::catalogue::Groups groups);

}  // namespace station::record
