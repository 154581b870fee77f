#include "programs/station/plan/PlanRun.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <string_view>
#include <thread>

#include "programs/Cli.h"
#include "programs/station/Station.h"
#include "programs/station/plan/HeadUnitClient.h"
#include "programs/station/plan/Operator.h"
#include "programs/station/plan/PlanFile.h"
#include "programs/station/plan/RunView.h"
#include "protocol/catalogue/Catalogue.h"
#include "station/record/Outcome.h"
#include "station/record/ResultsFolder.h"

namespace programs::station_tool {

using station::plan::Plan;
using station::plan::RunControl;

namespace {

/// Passes a run on to the view, and keeps its record.
class Recorder : public station::plan::Observer
{
public:
    /// @param directory of the results; empty for no record
    Recorder(station::plan::Observer& view, std::string directory) : view_(view), directory_(std::move(directory)) {}

    void onStarted(station::record::Run& run) override
    {
        run.uuid = station::record::makeUuid();
        run.id = station::record::makeRunId(run.plan.name, run.started, run.unit.port);
        if (!directory_.empty()) {
            results_.emplace(directory_, run, protocol::catalogue::groups());
        }
        view_.onStarted(run);
    }

    void onAttempt(const station::plan::StepPlace& place, const station::plan::Step& step, std::size_t attempt) override
    {
        view_.onAttempt(place, step, attempt);
    }

    void onFrame(const station::TraceEvent& event) override
    {
        if (results_) {
            results_->capture(event);
        }
        view_.onFrame(event);
    }

    void onStepEnded(const station::plan::StepPlace& place, const station::record::Step& step) override
    {
        view_.onStepEnded(place, step);
    }

    void onStepAmended(const station::plan::StepPlace& place, const station::record::Step& step) override
    {
        view_.onStepAmended(place, step);
    }

    void onGroupEnded(std::string_view phase, const station::record::Group& group,
                      const station::record::Run& run) override
    {
        try {
            if (results_) {
                results_->save(run);
            }
        } catch (const std::exception&) {
            // The unit must not stay half tested for the sake of the record, and the end writes everything again.
        }
        view_.onGroupEnded(phase, group, run);
    }

    void onEnded(const station::record::Run& run) override
    {
        guarded([&] { results_->finish(run); });
        folder_ = results_ ? results_->folder().string() : "";
        view_.onEnded(run);
    }

    /// Writes the results again, for a finding that came after the end.
    void amend(const station::record::Run& run)
    {
        guarded([&] { results_->amend(run); });
    }

    const std::string& folder() const { return folder_; }
    const std::string& error() const { return error_; }

private:
    template <class Work>
    void guarded(Work work)
    {
        if (!results_) {
            return;
        }
        try {
            work();
        } catch (const std::exception& error) {
            error_ = error_.empty() ? error.what() : error_;
        }
    }

    station::plan::Observer& view_;
    const std::string directory_;
    std::optional<station::record::ResultsFolder> results_;
    std::string folder_;
    std::string error_;
};

/// One unit and the thread that works on it.
struct Worker {
    Worker(station::PortSpec spec, station::plan::Observer& view, const std::string& results)
        : port(std::move(spec)), recorder(view, results)
    {
    }

    station::PortSpec port;
    Recorder recorder;
    RunControl control;
    UnitResult unit;
    /// What ended the run from outside it: the record could not be begun.
    std::string failure;
    std::thread thread;
};

std::string hostName()
{
    std::array<char, 256> name{};
    return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

std::unique_ptr<RunView> chooseView(const Tool& tool, const PlanRunOptions& options, const Plan& plan)
{
    const bool labelled = options.ports.size() > 1;
    if (tool.json) {
        return makeJsonView(plan);
    }
    if (!options.quiet && isatty(STDOUT_FILENO) == 1 && !isDumbTerminal()) {
        return makeLiveView(plan, labelled);
    }
    return makeLineView(plan, labelled, options.quiet);
}

std::vector<std::string> pathsOf(const std::vector<station::PortSpec>& ports)
{
    std::vector<std::string> paths;
    for (const auto& port : ports) {
        paths.push_back(port.path);
    }
    return paths;
}

/// Runs one plan at several ports.
class PlanRun
{
public:
    PlanRun(Tool& tool, const PlanRunOptions& options, const PlanFile& file, const Answers& answers)
        : tool_(tool)
        , options_(options)
        , plan_(*file.loaded.plan)
        , view_(chooseView(tool, options, plan_))
        , prompter_(answers, pathsOf(options.ports), [this](bool aside) { view_->aside(aside); })
        , surroundings_{protocol::catalogue::groups(), prompter_, headUnit_}
    {
        const station::StationConfig& config = tool.station->config();
        surroundings_.serialRecord = config.unit.serial;
        known_.unit.serial = options.serial;
        known_.station = {config.name.empty() ? hostName() : config.name, options.operatorName, ENGINEERING_VERSION,
                          config.line};
        known_.plan.sha256 = file.sha256;
        known_.catalogueSha256 = protocol::catalogue::hash();
    }

    int run()
    {
        const std::string results = options_.noRecord ? "" : options_.results;
        for (const auto& port : options_.ports) {
            workers_.emplace_back(port, view_->add(port.path), results);
        }
        running_ = workers_.size();
        for (Worker& worker : workers_) {
            worker.thread = std::thread([this, &worker] { work(worker); });
        }
        attend();
        for (Worker& worker : workers_) {
            worker.thread.join();
        }
        return conclude();
    }

private:
    void work(Worker& worker)
    {
        try {
            const auto reconnect = std::chrono::duration_cast<station::plan::Duration>(
                std::chrono::duration<double>(options_.reconnectSeconds));
            worker.unit.result = station::plan::runPlan(plan_, worker.port, surroundings_, worker.control,
                                                        worker.recorder, known_, reconnect);
        } catch (const std::exception& error) {
            worker.failure = error.what();
        }
        prompter_.ended(worker.port.path);
        if (--running_ == 0) {
            over_.request();
        }
    }

    /// Draws, and passes the user's wish for an end on, until all is over.
    void attend()
    {
        constexpr int kTickMs = 100;
        while (running_ > 0) {
            view_->tick();
            std::array<pollfd, 2> wanted{{{tool_.interrupt.descriptor(), POLLIN, 0}, {over_.descriptor(), POLLIN, 0}}};
            poll(wanted.data(), wanted.size(), kTickMs);
            if (tool_.interrupt.requested()) {
                tool_.interrupt.clear();
                for (Worker& worker : workers_) {
                    worker.control.request();
                }
            }
        }
    }

    /// Another unit may have told the serial of this one after this one's run had ended.
    void addLateClash(Worker& worker)
    {
        station::plan::RunResult& result = worker.unit.result;
        const std::string clash = surroundings_.serials->clashOf(worker.port.path);
        if (!clash.empty() && !result.serialClashed) {
            result.run.findings.push_back({station::record::Verdict::kError, clash});
            worker.recorder.amend(result.run);
        }
    }

    int conclude()
    {
        std::vector<UnitResult> units;
        std::vector<std::string> complaints;
        bool failed = false;
        for (Worker& worker : workers_) {
            if (!worker.failure.empty()) {
                complaints.push_back(worker.failure);
                failed = true;
                continue;
            }
            addLateClash(worker);
            worker.unit.folder = worker.recorder.folder();
            worker.unit.recordError = worker.recorder.error();
            if (!worker.unit.recordError.empty()) {
                complaints.push_back(worker.unit.recordError);
            }
            const std::string reason = headlineOf(worker.unit.result.run).reason;
            if (worker.unit.result.portUnavailable) {
                complaints.push_back(reason);
            } else if (worker.unit.result.linkFailed) {
                complaints.push_back(reason);
            }
            units.push_back(std::move(worker.unit));
        }
        // The view erases what stands below it.
        view_->finish(units);
        std::set<std::string> said;
        for (const std::string& each : complaints) {
            // What several units have in common, as a directory that cannot be written, is said once.
            if (said.insert(each).second) {
                complain(kProgram, each);
            }
        }
        const ExitStatus status = exitStatusOf(units);
        const bool comesBefore = status == kInterrupted || status == kPortUnavailable || status == kLineFailed;
        return failed && !comesBefore ? kNotRecorded : status;
    }

    Tool& tool_;
    const PlanRunOptions& options_;
    const Plan& plan_;
    std::unique_ptr<RunView> view_;
    Operator prompter_;
    HeadUnitClient headUnit_;
    station::plan::Surroundings surroundings_;
    station::record::Run known_;
    std::deque<Worker> workers_;
    std::atomic<std::size_t> running_ = 0;
    station::Interrupt over_;
};

/// @returns whether the plan may run; otherwise the user has been told why not.
bool mayRun(const PlanRunOptions& options, const Plan& plan)
{
    const auto destructive = plan.destructiveSteps();
    if (!destructive.empty() && !options.destructive) {
        complain(kProgram, options.plan + ":" + std::to_string(destructive.front()->line) + ": '" +
                               destructive.front()->what + "' cannot be undone; add --yes to run it all the same");
        return false;
    }
    for (std::size_t i = 1; i < options.ports.size(); ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            if (options.ports[i].path == options.ports[j].path) {
                complain(kProgram, options.ports[i].path + " is given twice: one --port per unit is expected");
                return false;
            }
        }
    }
    if (options.ports.size() > 1 && !options.serial.empty()) {
        complain(kProgram, "--serial names one unit: with several, let the plan store each one's as 'serial'");
        return false;
    }
    return true;
}

}  // namespace

int runPlanAtPorts(Tool& tool, const PlanRunOptions& options)
{
    const PlanFile file = readPlan(options.plan);
    if (!file.loaded.plan) {
        printProblems(options.plan, file.loaded.problems);
        return kWrongUse;
    }
    if (!mayRun(options, *file.loaded.plan)) {
        return kWrongUse;
    }
    Answers answers;
    if (!options.answers.empty()) {
        protocol::toml_file::Problems problems;
        try {
            answers = Answers(station::plan::readFile(options.answers), *file.loaded.plan, problems);
        } catch (const std::system_error& error) {
            problems.push_back({1, 1, "cannot be read: " + error.code().message()});
        }
        if (!problems.empty()) {
            printProblems(options.answers, problems);
            return kWrongUse;
        }
    }
    return PlanRun(tool, options, file, answers).run();
}

}  // namespace programs::station_tool
