#pragma once

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

/// Tells the facts of a run to its folder, in their order.
void tell(const Run& run, ResultsFolder& results);

}  // namespace station::record::samples
