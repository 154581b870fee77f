#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <string>
#include <vector>

#include "protocol/Errors.h"
#include "station/plan/RunSummary.h"
#include "station/plan/Runner.h"

/// Runs a plan with several units at once and keeps the records.
namespace station::plan {

/// The wishes of the user for `plan run`.
struct RunRequest {
    std::vector<PortSpec> ports;
    /// Directory of the results; empty to keep none.
    std::string results;
    /// The facts that are known before the run; see runPlan().
    record::Run known;
    Duration reconnect = std::chrono::seconds(10);
    /// Whether the plan may send commands that cannot be undone.
    bool destructive = false;
};

/// Throws protocol::UserError unless the plan may run so: without destructive commands or with the user's consent, at
/// different ports, and with a serial number for one unit only.
void expectRunnable(const Plan& plan, const RunRequest& request);

/// The end of all runs.
struct Conclusion {
    std::vector<UnitResult> units;
    /// For standard error, each once.
    std::vector<std::string> complaints;
    protocol::ExitStatus status = protocol::kPassed;
};

/// One run at each port, each on its own thread. All functions are for one thread.
class PlanRuns
{
public:
    /// Shows the run at a port; outlives the runs.
    using ViewOf = std::function<Observer&(const std::string& port)>;
    /// Called on the thread of a run when it has ended or could not begin.
    using OnEnded = std::function<void(const std::string& port)>;

    /// Begins the runs. The plan, the request and the surroundings outlive this object.
    PlanRuns(
        const Plan& plan, const RunRequest& request, const Surroundings& surroundings, const ViewOf& viewOf,
        OnEnded onEnded = [](const std::string&) {});
    ~PlanRuns();
    PlanRuns(const PlanRuns&) = delete;
    PlanRuns& operator=(const PlanRuns&) = delete;

    bool running() const { return running_ > 0; }

    /// Is requested when the last run ends.
    const Interrupt& over() const { return over_; }

    /// Passes the user's wish to end on to every run.
    void requestEnd();

    /// Waits for all runs. To be called once.
    Conclusion conclude();

private:
    struct Unit;

    void work(Unit& unit);

    const Plan& plan_;
    const RunRequest& request_;
    const Surroundings& surroundings_;
    const OnEnded onEnded_;
    std::list<Unit> units_;
    std::atomic<std::size_t> running_;
    Interrupt over_;
};

}  // namespace station::plan
