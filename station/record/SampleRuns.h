#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "station/record/ResultsFolder.h"
#include "station/record/RunRecord.h"

/// Runs made by hand, for tests and for a look at the reports.
namespace station::record::samples {

/// Setup, two groups and teardown, which all pass.
Run passed();

/// The tuner's antenna is open: one limit missed, one step without answer, one refused frame, one passed when repeated,
/// a group that passed in its second try, steps that were not run.
Run failed();

/// Ended by the user in its second step.
Run aborted();

/// The port was missing, so no step was run.
Run withoutSteps();

/// Every text is from a hostile unit: markup, control characters, bytes that are not UTF-8.
Run hostile();

/// One step with `count` frames.
Run withFrames(std::size_t count);

/// A step "Level N" for each value, which is measured in mV against the limits; the run starts `later` than the others.
Run measured(const std::string& serial, std::chrono::seconds later, const std::vector<double>& values,
             const Limits& limits);

/// Writes the folder of a run with its record alone, at once.
void write(const Run& run, const std::filesystem::path& directory);

/// Tells the facts of a run to its folder, in their order.
void tell(const Run& run, ResultsFolder& results);

}  // namespace station::record::samples
