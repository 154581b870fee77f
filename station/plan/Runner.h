#pragma once

#include <string>

#include "station/Connection.h"
#include "station/plan/Plan.h"
#include "station/plan/RunControl.h"
#include "station/plan/Speed.h"
#include "station/plan/Surroundings.h"
#include "station/record/RunRecord.h"

namespace station::plan {

struct RunResult {
    record::Run run;
    /// The port could not be opened, so nothing was done.
    bool portUnavailable = false;
    /// What the user can do about that, to be printed behind the reason; empty for nothing.
    std::string remedy;
    /// The line failed during the run.
    bool linkFailed = false;
    /// The unit at another port has the same serial number; the run has the finding.
    bool serialClashed = false;
    Speed speed;
};

/// Runs a plan with the unit at one port, on the caller's thread, from setup to teardown. Every failure becomes part of
/// the result; only exceptions of the observer leave this function.
///
/// The teardown runs whenever the port could be opened, within its own time limit.
///
/// A run belongs to one unit. It is in error, and its main part ends, if the unit has another serial number than the
/// operator gave, or the same as the unit at another port of `surroundings`.
///
/// @param run the facts that are known before: unit.serial (the operator's), station, plan.sha256, catalogueSha256
/// @param reconnect how long to wait for a device that has gone
RunResult runPlan(const Plan& plan, const PortSpec& port, const Surroundings& surroundings, RunControl& control,
                  Observer& observer, record::Run run, Duration reconnect = std::chrono::seconds(10));

}  // namespace station::plan
