#include "station/plan/PlanRuns.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <thread>

#include "protocol/Text.h"
#include "station/record/Outcome.h"
#include "station/record/RecordJson.h"
#include "station/record/ResultsFolder.h"

namespace station::plan {

namespace {

/// Passes a run on to its view, and keeps its record.
class RecordingObserver : public Observer
{
public:
    /// @param directory of the results; empty to keep none
    RecordingObserver(Observer& view, const std::string& directory, protocol::catalogue::Groups groups)
        : view_(view), directory_(directory), groups_(groups)
    {
    }

    void onStarted(record::Run& run) override
    {
        run_ = &run;
        run.uuid = record::makeUuid();
        run.id = record::makeRunId(run.plan.name, run.started, run.unit.port);
        if (!directory_.empty()) {
            results_.emplace(directory_, run, groups_);
        }
        view_.onStarted(run);
    }

    void onAttempt(const StepPlace& place, const Step& step, std::size_t attempt) override
    {
        view_.onAttempt(place, step, attempt);
    }

    void onFrame(const TraceEvent& event) override
    {
        if (results_) {
            results_->capture(event);
        }
        view_.onFrame(event);
    }

    void onClaimed(std::size_t event) override
    {
        if (results_) {
            results_->claim(event);
        }
    }

    void onGroup(std::string_view phase, const record::Group& group) override
    {
        if (results_) {
            results_->append(record::lines::group(phase, group.name));
        }
    }

    void onStepEnded(const StepPlace& place, const record::Step& step) override
    {
        tell("step", place, step);
        view_.onStepEnded(place, step);
    }

    void onStepAmended(const StepPlace& place, const record::Step& step) override
    {
        tell("amended", place, step);
        view_.onStepAmended(place, step);
    }

    void onTryEnded(std::string_view phase, const record::Group& group) override
    {
        if (results_ && group.tries.back().superseded) {
            results_->append(record::lines::superseded(phase, group));
        }
    }

    void onEnded(const record::Run& run) override
    {
        run_ = nullptr;
        keep([&] {
            view_.onWriting();
            results_->finish(run);
        });
        view_.onEnded(run);
    }

    /// Writes the results again, for a finding that came after the end.
    void amend(const record::Run& run)
    {
        keep([&] { results_->amend(run); });
    }

    std::string folder() const { return results_ ? results_->folder().string() : ""; }
    const std::string& error() const { return error_; }

private:
    void tell(const char* event, const StepPlace& place, const record::Step& step)
    {
        if (results_) {
            results_->append(record::lines::step(event, run_->unit.port, place, step));
            results_->note(*run_);
        }
    }

    template <class Work>
    void keep(Work work)
    {
        try {
            if (results_) {
                work();
            }
        } catch (const std::exception& error) {
            error_ = error_.empty() ? error.what() : error_;
        }
    }

    Observer& view_;
    const std::string directory_;
    const protocol::catalogue::Groups groups_;
    std::optional<record::ResultsFolder> results_;
    const record::Run* run_ = nullptr;  // while it goes on
    std::string error_;
};

}  // namespace

struct PlanRuns::Unit {
    Unit(PortSpec spec, Observer& view, const std::string& results, protocol::catalogue::Groups groups)
        : port(std::move(spec)), recorder(view, results, groups)
    {
    }

    const PortSpec port;
    RecordingObserver recorder;
    RunControl control;
    UnitResult result;
    /// Why the record could not be begun, so nothing was run; empty otherwise.
    std::string failure;
    std::thread thread;
};

void expectRunnable(const Plan& plan, const RunRequest& request)
{
    const auto destructive = plan.destructiveSteps();
    if (!destructive.empty() && !request.destructive) {
        throw protocol::UserError(fmt::format("{}:{}: expected --yes, because {} cannot be undone", plan.path,
                                              destructive.front()->line,
                                              protocol::inQuotes(destructive.front()->what)));
    }
    for (auto port = request.ports.begin(); port != request.ports.end(); ++port) {
        if (std::find_if(request.ports.begin(), port, [&](const PortSpec& each) { return each.path == port->path; }) !=
            port) {
            throw protocol::UserError(fmt::format("--port: expected each unit once, got {} twice", port->path));
        }
    }
    if (request.ports.size() > 1 && !request.known.unit.serial.empty()) {
        throw protocol::UserError(
            "--serial: expected one unit; with several, let the plan store the serial number of each as 'serial'");
    }
}

PlanRuns::PlanRuns(const Plan& plan, const RunRequest& request, const Surroundings& surroundings, const ViewOf& viewOf,
                   OnEnded onEnded)
    : plan_(plan)
    , request_(request)
    , surroundings_(surroundings)
    , onEnded_(std::move(onEnded))
    , running_(request.ports.size())
{
    for (const PortSpec& port : request.ports) {
        units_.emplace_back(port, viewOf(port.path), request.results, surroundings.groups);
    }
    for (Unit& unit : units_) {
        unit.thread = std::thread([this, &unit] { work(unit); });
    }
}

PlanRuns::~PlanRuns()
{
    for (Unit& unit : units_) {
        if (unit.thread.joinable()) {
            unit.thread.join();
        }
    }
}

void PlanRuns::work(Unit& unit)
{
    try {
        unit.result.result =
            runPlan(plan_, unit.port, surroundings_, unit.control, unit.recorder, request_.known, request_.reconnect);
    } catch (const std::exception& error) {
        unit.failure = error.what();
    }
    onEnded_(unit.port.path);
    if (--running_ == 0) {
        over_.request();
    }
}

void PlanRuns::requestEnd()
{
    for (Unit& unit : units_) {
        unit.control.request();
    }
}

Conclusion PlanRuns::conclude()
{
    Conclusion conclusion;
    const auto complain = [&](const std::string& text) {
        // Several units may have the same cause, such as a directory that cannot be written.
        if (!text.empty() && std::ranges::find(conclusion.complaints, text) == conclusion.complaints.end()) {
            conclusion.complaints.push_back(text);
        }
    };
    for (Unit& unit : units_) {
        unit.thread.join();
    }
    bool failed = false;
    for (Unit& unit : units_) {
        if (!unit.failure.empty()) {
            failed = true;
            complain(unit.failure);
            continue;
        }
        RunResult& result = unit.result.result;
        // Another unit may have told the serial number of this one after this run had ended.
        const std::string clash = surroundings_.serials->clashOf(unit.port.path);
        if (!clash.empty() && !result.serialClashed) {
            result.run.findings.push_back({record::Verdict::kError, clash});
            unit.recorder.amend(result.run);
        }
        unit.result.folder = unit.recorder.folder();
        unit.result.recordError = unit.recorder.error();
        complain(unit.result.recordError);
        if (result.portUnavailable || result.linkFailed) {
            complain(headlineOf(result.run).reason + result.remedy);
        }
        conclusion.units.push_back(std::move(unit.result));
    }
    conclusion.status = exitStatusOf(conclusion.units);
    const bool comesBefore = conclusion.status == protocol::kInterrupted ||
                             conclusion.status == protocol::kPortUnavailable ||
                             conclusion.status == protocol::kLineFailed;
    if (failed && !comesBefore) {
        conclusion.status = protocol::kNotRecorded;
    }
    return conclusion;
}

}  // namespace station::plan
