#pragma once

#include <string>

#include "protocol/catalogue/Model.h"
#include "station/record/RunRecord.h"

namespace station::record {

/// Name of the file in a run's folder.
inline constexpr const char* kJunitFile = "junit.xml";

/// @returns the run as JUnit XML: a test suite for each group, a test case for each step, as docs/results.md says.
/// A run that did not pass always has a test case that did not.
/// @param groups what the frames are put into words with
std::string junitReport(const Run& run, protocol::catalogue::Groups groups);

}  // namespace station::record
