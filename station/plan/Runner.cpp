#include "station/plan/Runner.h"

#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <string>

#include "protocol/Quantity.h"
#include "station/plan/LineWatch.h"
#include "station/plan/RunControl.h"
#include "station/plan/StepRunner.h"
#include "station/record/Outcome.h"
#include "station/record/RunFacts.h"

namespace station::plan {

using record::Verdict;

namespace {

/// @returns the values in force, as the record has them.
std::vector<record::Run::Parameter> parametersOf(const Plan& plan)
{
    std::vector<record::Run::Parameter> list;
    for (const Parameter& each : plan.parameters) {
        record::Scalar value = shownValue(each);
        const auto number = each.isNumber && !each.secret ? protocol::parseFinite(shownValue(each)) : std::nullopt;
        if (number) {
            value = *number;
        }
        list.push_back({each.name, std::move(value), each.unit, each.from});
    }
    return list;
}

/// One run of one plan.
class Runner
{
public:
    Runner(const Plan& plan, const PortSpec& port, const Surroundings& surroundings, RunControl& control,
           Observer& observer, record::Run run, Duration reconnect)
        : plan_(plan)
        , surroundings_(surroundings)
        , control_(control)
        , observer_(observer)
        , port_(port)
        , reconnect_(reconnect)
        , run_(result_.run)
        , line_(run_, observer, surroundings.groups)
        , serial_(surroundings.serialRecord, *surroundings.serials, port.path)
        , total_(plan.stepCount())
        , facts_(run_, 0, [this](const record::Group::Try& closed) {
            if (runner_ != nullptr) {
                runner_->forget(closed);
            }
        })
    {
        run_ = std::move(run);
        run_.unit.port = port.path;
        run_.unit.baud = port.baud;
        run_.plan.name = plan.name;
        run_.plan.title = plan.title;
        run_.plan.path = plan.path;
        run_.plan.steps = total_;
        run_.plan.version = plan.version;
        run_.plan.parameters = parametersOf(plan);
        run_.started = std::chrono::system_clock::now();
        serial_.give(run_.unit.serial);
        run_.unit.serial = serial_.known();
        run_.phases = {{"setup", {}, {}}, {"main", {}, {}}, {"teardown", {}, {}}};
    }

    RunResult run()
    {
        observer_.onStarted(run_);
        try {
            Connection connection(port_, {reconnect_, &line_, &control_.interrupt()});
            StepRunner runner(connection, line_, surroundings_, control_, run_, serial_, observer_);
            for (const Parameter& each : plan_.parameters) {
                runner.know(each.name, each.value.value_or(""));
            }
            runner_ = &runner;
            runPhases();
            runner_ = nullptr;
        } catch (const protocol::LineError& error) {
            if (error.status() != protocol::kPortUnavailable) {
                throw;
            }
            result_.portUnavailable = true;
            result_.remedy = error.remedy();
            run_.findings.push_back({Verdict::kError, error.what()});
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
        phase(record::Run::kSetup, plan_.setup);
        if (record::isBad(verdictOf(run_.phases[record::Run::kSetup])) && stop_.empty()) {
            stop_ = "the setup failed";
        }
        phase(record::Run::kMain, plan_.main);
        runner_->lookAtLine();
        tearDown();
        runner_->lookAtLine();
    }

    void tearDown()
    {
        stop_.clear();
        if (!control_.beginTeardown()) {
            stop_ = "the user ended the run at once";
        }
        const TimeLimit limit(control_.interrupt(), plan_.teardownLimit);
        runner_->limitBy(&limit);
        limit_ = &limit;
        phase(record::Run::kTeardown, plan_.teardown);
        runner_->limitBy(nullptr);
        limit_ = nullptr;
        if (limit.over()) {
            run_.phases[record::Run::kTeardown].cut = {Verdict::kTimeout, "the teardown exceeded its time limit"};
        }
    }

    void phase(std::size_t index, const std::vector<Group>& groups)
    {
        phase_ = index;
        for (const Group& each : groups) {
            group(each);
        }
        if (!stop_.empty()) {
            run_.phases[index].cut = {Verdict::kSkipped, stop_};
        }
    }

    record::Group& groupRecord() { return run_.phases[phase_].groups.back(); }

    void group(const Group& group)
    {
        observer_.onGroup(run_.phases[phase_].name, facts_.beginGroup(run_.phases[phase_], group.name));
        const std::size_t first = index_;
        const std::size_t begun = progress_.step;
        const std::string skipped = stop_.empty() ? unmet(group) : stop_;
        const auto ends = std::chrono::steady_clock::now() + group.duration.value_or(Duration(0));
        for (std::size_t round = 0; round < group.repeat; ++round) {
            const bool over = group.duration && std::chrono::steady_clock::now() >= ends;
            if (round > 0 && (!skipped.empty() || over || checkStop())) {
                break;
            }
            Verdict verdict = Verdict::kSkipped;
            for (int attempt = 0; attempt <= group.retries; ++attempt) {
                index_ = first;
                progress_ = {begun + round * group.steps.size(), limit_ != nullptr};
                stopAfterGroup_.clear();
                steps(group, skipped);
                verdict = verdictOf(groupRecord().tries.back());
                const bool superseded = attempt < group.retries && record::isBad(verdict) && stop_.empty();
                facts_.endTry(superseded);
                observer_.onTryEnded(run_.phases[phase_].name, groupRecord());
                if (!superseded) {
                    break;
                }
                pause(group.retryDelay);
            }
            if (stop_.empty() && record::isBad(verdict)) {
                stop_ = stopAfterGroup_;
            }
            // A group whose steps are all skipped would spin until its time is over.
            if (group.duration && verdict == Verdict::kSkipped) {
                break;
            }
        }
        index_ = first + group.steps.size();
        progress_.step = begun + group.repeat * group.steps.size();
    }

    /// Goes through a group's steps once.
    void steps(const Group& group, const std::string& skippedGroup)
    {
        facts_.beginTry();
        std::string skipped = skippedGroup;
        for (const Step& each : group.steps) {
            if (skipped.empty() && !stop_.empty()) {
                skipped = stop_;
            }
            const Verdict verdict = step(group, each, skipped);
            if (record::isBad(verdict) && skipped.empty() && each.onFailure != OnFailure::kNext) {
                skipped = fmt::format("the earlier step '{}' did not pass", each.name);
                if (each.onFailure == OnFailure::kStop) {
                    stopAfterGroup_ = fmt::format("'{}' in group '{}' did not pass", each.name, group.name);
                }
            }
        }
    }

    Verdict step(const Group& group, const Step& step, const std::string& skippedBefore)
    {
        record::Step& record = groupRecord().tries.back().steps.emplace_back();
        record.name = step.name;
        record.kind = step.kind();
        record.what = step.what;
        surroundings_.prompter.reached(port_.path, progress_);
        ++progress_.step;
        const StepPlace place{run_.phases[phase_].name, group.name, triesOf(groupRecord()), index_++, total_};
        std::string skipped = skippedBefore.empty() ? unmet(step) : skippedBefore;
        if (skipped.empty() && !step.ifStored.empty() && !runner_->variables().contains(step.ifStored)) {
            skipped = fmt::format("nothing has been stored as '{}'", step.ifStored);
        }
        if (skipped.empty()) {
            attempts(place, step, record);
        } else {
            record.cut = {Verdict::kSkipped, skipped};
            checkStop();
        }
        speed_.add(run_, record);
        observer_.onStepEnded(place, record);
        return verdictOf(record);
    }

    void attempts(const StepPlace& place, const Step& step, record::Step& record)
    {
        for (int round = 0; round < step.repeat && stop_.empty(); ++round) {
            for (int again = 0; again <= step.retries && !checkStop(); ++again) {
                if (again > 0) {
                    record.attempts.back().superseded = true;
                }
                attempt(place, step, record);
                if (record.attempts.back().verdict == Verdict::kPass || !stop_.empty()) {
                    break;
                }
                if (again < step.retries) {
                    pause(step.retryDelay);
                }
            }
        }
        if (record.attempts.empty()) {
            const bool asked = control_.interrupt().requested();
            record.cut = {teardownLate() ? Verdict::kTimeout : asked ? Verdict::kAborted : Verdict::kSkipped, stop_};
        }
    }

    void attempt(const StepPlace& place, const Step& step, record::Step& record)
    {
        observer_.onAttempt(place, step, record.attempts.size() + 1);
        runner_->attempt(step, place, record);
        run_.unit.serial = serial_.known();
        if (runner_->linkFailed()) {
            result_.linkFailed = true;
            if (phase_ != record::Run::kTeardown) {
                stop_ = "the line failed";
            }
        }
        if (!checkStop() && phase_ != record::Run::kTeardown && runner_->unitRestarted()) {
            stop_ = "the unit restarted: auto-test mode is off";
            run_.findings.push_back({Verdict::kError, stop_});
        }
    }

    /// @returns whether this phase ends here.
    bool checkStop()
    {
        if (stop_.empty() && control_.interrupt().requested()) {
            stop_ = teardownLate() ? "the teardown ran out of time" : "the user ended the run";
        }
        if (stop_.empty() && phase_ != record::Run::kTeardown) {
            stop_ = serial_.mismatch().empty() ? surroundings_.serials->clashOf(port_.path) : serial_.mismatch();
        }
        return !stop_.empty();
    }

    /// @returns whether its time limit, not the user, has ended the teardown.
    bool teardownLate() const { return limit_ != nullptr && limit_->over() && !control_.teardownRefused(); }

    void pause(Duration time)
    {
        pollfd request{control_.interrupt().descriptor(), POLLIN, 0};
        const timespec left{static_cast<time_t>(time.count() / 1'000'000'000),
                            static_cast<long>(time.count() % 1'000'000'000)};
        ppoll(&request, 1, &left, nullptr);
    }

    /// @returns why a step or group is skipped; empty if it is not.
    template <class Part>
    std::string unmet(const Part& part)
    {
        if (part.needsHeadUnit && !surroundings_.headUnit.present()) {
            return "there is no simulated head unit on the session bus";
        }
        if (part.needsPower && !surroundings_.instruments->equipment().power) {
            return "the station's file has no section [power]";
        }
        for (const Condition& condition : part.onlyIf) {
            const auto found = runner_->variables().find(condition.variable);
            if (found == runner_->variables().end() || !condition.holds(found->second)) {
                return "only for " + condition.text;
            }
        }
        return {};
    }

    void skipAll()
    {
        phase(record::Run::kSetup, plan_.setup);
        phase(record::Run::kMain, plan_.main);
        phase(record::Run::kTeardown, plan_.teardown);
    }

    void finish()
    {
        const bool away = run_.line.reconnects < run_.line.losses;
        if (run_.line.losses > 0 && (away || !plan_.passesAcrossLinkLoss) && !result_.linkFailed) {
            run_.findings.push_back({Verdict::kError, away ? "the line was lost" : "the line was lost and came back"});
        }
        result_.linkFailed = result_.linkFailed || away;
        const auto limit = [this](const char* what, std::size_t got, const std::optional<std::size_t>& most) {
            if (most && got > *most) {
                run_.findings.push_back(
                    {Verdict::kFail, fmt::format("{} on the line: expected at most {}, got {}", what, *most, got)});
            }
        };
        limit("reconnects", run_.line.reconnects, plan_.line.reconnects);
        limit("repeated sends", run_.line.repeatedSends, plan_.line.repeatedSends);
        limit("corrupt frames", run_.line.corruptFrames, plan_.line.corruptFrames);
        limit("bytes of garbage", run_.line.garbageBytes, plan_.line.garbageBytes);
        if (control_.requested()) {
            run_.findings.push_back({Verdict::kAborted, "the user ended the run"});
        }
        if (!serial_.mismatch().empty()) {
            run_.findings.push_back({Verdict::kError, serial_.mismatch()});
        }
        if (const std::string clash = surroundings_.serials->clashOf(port_.path); !clash.empty()) {
            result_.serialClashed = true;
            run_.findings.push_back({Verdict::kError, clash});
        }
        facts_.end();
        run_.ended = std::chrono::system_clock::now();
        result_.speed = speed_.speed();
        result_.speed.total = run_.ended - run_.started;
    }

    const Plan& plan_;
    const Surroundings& surroundings_;
    RunControl& control_;
    Observer& observer_;
    const PortSpec port_;
    const Duration reconnect_;
    RunResult result_;
    record::Run& run_;
    LineWatch line_;
    UnitSerial serial_;
    StepRunner* runner_ = nullptr;
    const TimeLimit* limit_ = nullptr;
    std::size_t phase_ = record::Run::kSetup;
    std::size_t index_ = 0;
    Progress progress_;
    const std::size_t total_;
    record::RunFacts facts_;
    SpeedMeter speed_;
    /// Why this phase ends early; empty while it goes on.
    std::string stop_;
    /// The same, for the time after the group has failed its last try.
    std::string stopAfterGroup_;
};

}  // namespace

RunResult runPlan(const Plan& plan, const PortSpec& port, const Surroundings& surroundings, RunControl& control,
                  Observer& observer, record::Run run, Duration reconnect)
{
    return Runner(plan, port, surroundings, control, observer, std::move(run), reconnect).run();
}

}  // namespace station::plan
