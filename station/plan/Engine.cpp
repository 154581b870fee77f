#include "station/plan/Engine.h"

#include <poll.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "station/plan/LineRecord.h"
#include "station/plan/StepRunner.h"
#include "station/plan/TimeLimit.h"
#include "station/record/Outcome.h"

namespace station::plan {

using record::Verdict;

namespace {

/// What a plan stores under this name tells whose record it is.
constexpr std::string_view kSerialVariable = "serial";

bool passed(Verdict verdict)
{
    return verdict == Verdict::kPass || verdict == Verdict::kSkipped;
}

/// One run of one plan.
class Engine
{
public:
    Engine(const Plan& plan, const PortSpec& port, const Surroundings& surroundings, RunControl& control,
           Observer& observer, record::Run run, Duration reconnect)
        : plan_(plan)
        , surroundings_(surroundings)
        , control_(control)
        , observer_(observer)
        , port_(port)
        , reconnect_(reconnect)
        , run_(result_.run)
        , line_(run_, observer)
        , total_(plan.stepCount())
    {
        run_ = std::move(run);
        run_.unit.port = port.path;
        run_.unit.baud = port.baud;
        run_.plan.name = plan.name;
        run_.plan.title = plan.title;
        run_.plan.path = plan.path;
        run_.started = std::chrono::system_clock::now();
        run_.phases = {{"setup", Verdict::kSkipped, {}, {}},
                       {"main", Verdict::kSkipped, {}, {}},
                       {"teardown", Verdict::kSkipped, {}, {}}};
    }

    Result run()
    {
        observer_.onStarted(run_);
        try {
            Connection connection(port_, {reconnect_, &line_, &control_.interrupt()});
            StepRunner runner(connection, line_, surroundings_, control_, run_, observer_);
            runner_ = &runner;
            runPhases();
            if (const auto serial = runner.variables().find(kSerialVariable);
                serial != runner.variables().end() && run_.unit.serial.empty()) {
                run_.unit.serial = serial->second;
            }
            runner_ = nullptr;
        } catch (const PortError& error) {
            result_.portUnavailable = true;
            run_.reason = error.what();
            stop_ = "the port could not be opened";
            skipAll();
        } catch (const Interrupted&) {
            stop_ = "the user ended the run";
            skipAll();
        }
        finish();
        observer_.onEnded(run_);
        return std::move(result_);
    }

private:
    void runPhases()
    {
        phase(kSetup, plan_.setup);
        if (!passed(run_.phases[kSetup].verdict) && stop_.empty()) {
            stop_ = "the setup failed";
        }
        phase(kMain, plan_.main);
        tearDown();
    }

    void tearDown()
    {
        stop_.clear();
        if (!control_.beginTeardown()) {
            stop_ = "the user ended the run at once";
        }
        record::Phase& record = run_.phases[kTeardown];
        {
            const TimeLimit limit(control_.interrupt(), plan_.teardownLimit);
            runner_->limitBy(&limit);
            limit_ = &limit;
            phase(kTeardown, plan_.teardown);
            runner_->limitBy(nullptr);
            limit_ = nullptr;
            if (limit.over()) {
                record.reason = "the teardown took longer than it may";
                record.verdict = record::worse(record.verdict, Verdict::kTimeout);
            }
        }
    }

    void phase(std::size_t index, const std::vector<Group>& groups)
    {
        phase_ = index;
        for (const Group& each : groups) {
            group(each);
        }
        record::Phase& record = run_.phases[index];
        for (const auto& each : record.groups) {
            record.verdict = record::worse(record.verdict, each.verdict);
        }
        if (!stop_.empty() && record.reason.empty()) {
            record.reason = stop_;
        }
    }

    std::size_t groupIndex() const { return run_.phases[phase_].groups.size() - 1; }
    record::Group& groupRecord() { return run_.phases[phase_].groups.back(); }

    void group(const Group& group)
    {
        run_.phases[phase_].groups.push_back({group.name, Verdict::kSkipped, {}});
        const std::size_t first = index_;
        const std::string skipped = stop_.empty() ? unmet(group.needsHeadUnit, group.onlyIf) : stop_;
        for (int round = 0; round < group.repeat; ++round) {
            if (round > 0 && !stop_.empty()) {
                break;
            }
            Verdict verdict = Verdict::kSkipped;
            for (int attempt = 0; attempt <= group.retries; ++attempt) {
                index_ = first;
                stopAfterGroup_.clear();
                verdict = steps(group, skipped);
                const bool again = attempt < group.retries && !passed(verdict) && stop_.empty();
                if (!again) {
                    break;
                }
                groupRecord().tries.back().superseded = true;
                pause(group.retryDelay);
            }
            groupRecord().verdict = record::worse(groupRecord().verdict, verdict);
            if (stop_.empty() && !passed(verdict)) {
                stop_ = stopAfterGroup_;
            }
        }
        index_ = first + group.steps.size();
        observer_.onGroupEnded(run_.phases[phase_].name, groupRecord(), run_);
    }

    /// Goes through a group's steps once.
    Verdict steps(const Group& group, const std::string& skippedGroup)
    {
        groupRecord().tries.push_back({});
        std::string skipped = skippedGroup;
        for (const Step& each : group.steps) {
            if (skipped.empty() && !stop_.empty()) {
                skipped = stop_;
            }
            const Verdict verdict = step(group, each, skipped);
            if (!passed(verdict) && skipped.empty() && each.onFailure != OnFailure::kNext) {
                skipped = "'" + each.name + "' before it did not pass";
                if (each.onFailure == OnFailure::kStop) {
                    stopAfterGroup_ = "'" + each.name + "' in group '" + group.name + "' did not pass";
                }
            }
        }
        auto& round = groupRecord().tries.back();
        for (const auto& each : round.steps) {
            round.verdict = record::worse(round.verdict, each.verdict);
        }
        return round.verdict;
    }

    Verdict step(const Group& group, const Step& step, const std::string& skippedBefore)
    {
        auto& list = groupRecord().tries.back().steps;
        list.push_back({step.name, std::string(step.kind()), step.what, Verdict::kSkipped, {}, {}});
        const StepPlace place{run_.phases[phase_].name, group.name, groupRecord().tries.size(), index_++, total_};
        std::string skipped = skippedBefore.empty() ? unmet(step.needsHeadUnit, step.onlyIf) : skippedBefore;
        if (skipped.empty() && !step.ifStored.empty() && !runner_->variables().contains(step.ifStored)) {
            skipped = "nothing has been stored as '" + step.ifStored + "'";
        }
        if (skipped.empty()) {
            attempts(place, step);
        } else {
            list.back().reason = skipped;
        }
        observer_.onStepEnded(place, list.back());
        return list.back().verdict;
    }

    record::Step& stepRecord() { return groupRecord().tries.back().steps.back(); }

    void attempts(const StepPlace& place, const Step& step)
    {
        for (int round = 0; round < step.repeat && stop_.empty(); ++round) {
            for (int again = 0; again <= step.retries; ++again) {
                if (again > 0) {
                    pause(step.retryDelay);
                }
                if (checkStop()) {
                    break;
                }
                attempt(place, step);
                if (stepRecord().attempts.back().verdict == Verdict::kPass || !stop_.empty()) {
                    break;
                }
            }
            conclude();
        }
    }

    void attempt(const StepPlace& place, const Step& step)
    {
        observer_.onAttempt(place, step, stepRecord().attempts.size() + 1);
        runner_->attempt(step, {phase_, groupIndex(), groupRecord().tries.size() - 1,
                                groupRecord().tries.back().steps.size() - 1, stepRecord().attempts.size(), place});
        if (runner_->linkFailed()) {
            result_.linkFailed = true;
            if (phase_ != kTeardown) {
                stop_ = "the line failed";
            }
        }
        checkStop();
    }

    /// The last attempt of a round decides it.
    void conclude()
    {
        record::Step& record = stepRecord();
        if (record.attempts.empty()) {
            record.verdict = teardownLate() ? Verdict::kTimeout : Verdict::kAborted;
            record.reason = stop_;
            return;
        }
        const record::Attempt& last = record.attempts.back();
        record.verdict = record::worse(record.verdict, last.verdict);
        if (last.verdict != Verdict::kPass) {
            record.reason = last.reason;
        }
    }

    /// @returns whether nothing more is to be done in this phase.
    bool checkStop()
    {
        if (stop_.empty() && control_.interrupt().requested()) {
            stop_ = teardownLate() ? "the teardown's time was over" : "the user ended the run";
        }
        return !stop_.empty();
    }

    /// @returns whether the teardown's time, not the user, has ended it.
    bool teardownLate() const { return limit_ != nullptr && limit_->over() && !control_.teardownRefused(); }

    void pause(Duration time)
    {
        pollfd request{control_.interrupt().descriptor(), POLLIN, 0};
        const timespec left{static_cast<time_t>(time.count() / 1'000'000'000),
                            static_cast<long>(time.count() % 1'000'000'000)};
        ppoll(&request, 1, &left, nullptr);
    }

    /// @returns why a step or group is skipped; empty when it is not.
    std::string unmet(bool needsHeadUnit, const std::vector<std::pair<std::string, std::string>>& onlyIf)
    {
        if (needsHeadUnit && !surroundings_.headUnit.present()) {
            return "there is no simulated head unit on the session bus";
        }
        for (const auto& [name, value] : onlyIf) {
            const auto found = runner_->variables().find(name);
            if (found == runner_->variables().end() || found->second != value) {
                return "only for " + name + " = " + value;
            }
        }
        return {};
    }

    void skipAll()
    {
        phase(kSetup, plan_.setup);
        phase(kMain, plan_.main);
        phase(kTeardown, plan_.teardown);
    }

    void finish()
    {
        for (const auto& each : run_.phases) {
            run_.verdict = record::worse(run_.verdict, each.verdict);
        }
        if (run_.verdict == Verdict::kPass && !mainWasRun()) {
            run_.verdict = Verdict::kSkipped;
            run_.reason = "nothing of the main part was run";
        }
        if (result_.portUnavailable) {
            run_.verdict = Verdict::kError;
        }
        if (control_.requested()) {
            run_.verdict = Verdict::kAborted;
            run_.reason = "the user ended the run";
        }
        if (run_.reason.empty()) {
            run_.reason = firstReason();
        }
        run_.ended = std::chrono::system_clock::now();
    }

    /// @returns what went wrong first.
    std::string firstReason() const
    {
        const auto outcome = record::outcomeOf(run_);
        if (!outcome.failed.empty()) {
            const auto& first = outcome.failed.front();
            return first.group->name + " / " + first.step->name + ": " + first.step->reason;
        }
        const auto phase = std::ranges::find_if(run_.phases, record::isBad, &record::Phase::verdict);
        return phase == run_.phases.end() ? std::string() : phase->reason;
    }

    bool mainWasRun() const
    {
        return std::ranges::any_of(record::outcomeOf(run_).steps, [this](const record::PlacedStep& placed) {
            return placed.phase == &run_.phases[kMain] && placed.step->verdict != Verdict::kSkipped;
        });
    }

    static constexpr std::size_t kSetup = 0;
    static constexpr std::size_t kMain = 1;
    static constexpr std::size_t kTeardown = 2;

    const Plan& plan_;
    const Surroundings& surroundings_;
    RunControl& control_;
    Observer& observer_;
    const PortSpec port_;
    const Duration reconnect_;
    Result result_;
    record::Run& run_;
    LineRecord line_;
    StepRunner* runner_ = nullptr;
    const TimeLimit* limit_ = nullptr;
    std::size_t phase_ = kSetup;
    std::size_t index_ = 0;
    const std::size_t total_;
    /// Why nothing more is done in this phase; empty while it goes on.
    std::string stop_;
    /// The same, once the group has failed for good.
    std::string stopAfterGroup_;
};

}  // namespace

Result runPlan(const Plan& plan, const PortSpec& port, const Surroundings& surroundings, RunControl& control,
               Observer& observer, record::Run run, Duration reconnect)
{
    return Engine(plan, port, surroundings, control, observer, std::move(run), reconnect).run();
}

}  // namespace station::plan
