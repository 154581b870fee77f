#pragma once

#include "station/record/RunRecord.h"

/// Runs made by hand, for tests and for looking at what the reports make of them.
namespace station::record::samples {

/// Setup, two groups and teardown, everything as it should be.
Run passed();

/// The tuner's antenna is open: one limit missed, one step without answer, one refused frame, one passed when repeated,
/// a group that passed in its second try, steps that were not run.
Run failed();

/// Ended by the user in its second step.
Run aborted();

/// The port was not there: no step was run.
Run withoutSteps();

/// What a hostile unit could send, wherever a text stands: markup, control characters, bytes that are no UTF-8.
Run hostile();

/// One step with so many frames.
Run withFrames(std::size_t count);

}  // namespace station::record::samples
