#pragma once

#include <memory>

#include "station/Connection.h"
#include "station/plan/HeadUnit.h"
#include "station/plan/Observer.h"
#include "station/plan/Plan.h"
#include "station/plan/Prompter.h"
#include "station/plan/RunControl.h"
#include "station/plan/UnitSerial.h"
#include "station/record/RunRecord.h"

namespace station::plan {

/// What a run works with. All of it outlives the run and may be shared by several, but for `control`.
struct Surroundings {
    protocol::catalogue::Groups groups;
    Prompter& prompter;
    HeadUnit& headUnit;
    SerialRecord serialRecord = {};
    /// What the units at the ports of these runs hold.
    std::shared_ptr<SerialsAtPorts> serials = std::make_shared<SerialsAtPorts>();
};

struct RunResult {
    record::Run run;
    /// The port could not be opened; nothing was done.
    bool portUnavailable = false;
    /// The line failed on the way.
    bool linkFailed = false;
    /// The unit at another port holds the same serial; the run has the finding.
    bool serialClashed = false;
};

/// Runs a plan with the unit at one port, on the caller's thread, from setup to teardown. Whatever happens ends in the
/// result; only what the observer throws comes out of here.
///
/// The teardown runs whenever the port could be opened, within its own time.
///
/// A run belongs to one unit: it is in error, and its main part ends, when the unit holds another serial than the
/// operator gave, or the same as the unit at another port of `surroundings`.
///
/// @param run what is known beforehand: unit.serial (the operator's), station, plan.sha256, catalogueSha256
/// @param reconnect how long a device that has gone is waited for
RunResult runPlan(const Plan& plan, const PortSpec& port, const Surroundings& surroundings, RunControl& control,
                  Observer& observer, record::Run run, Duration reconnect = std::chrono::seconds(10));

}  // namespace station::plan
