#include "station/plan/LimitProof.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <span>
#include <system_error>

#include "protocol/Text.h"
#include "station/plan/Judge.h"
#include "station/record/RecordJson.h"
#include "station/record/ResultsFolder.h"
#include "station/record/ValueText.h"

namespace station::plan {

namespace {

using nlohmann::ordered_json;

/// The limit of a list whose records all have to match: their number, which only the reply says.
constexpr const char* kAllRecords = "all";

/// Calls `take` with each expectation of an action whose value is measured.
template <class Action, class Take>
void eachExpected(const Action& action, Take take)
{
    if constexpr (requires { action.poll; }) {
        if (action.poll) {
            std::ranges::for_each(action.poll->until, take);
        }
    }
    if constexpr (requires { action.expect.has_value(); }) {
        if (action.expect) {
            take(*action.expect);
        }
    } else if constexpr (requires { action.expect; }) {
        std::ranges::for_each(action.expect, take);
    }
    if constexpr (requires { action.expectLater; }) {
        std::ranges::for_each(action.expectLater, take);
    }
    if constexpr (requires { action.maxTime; }) {
        if (action.maxTime) {
            Expected latency;
            latency.name = kLatency;
            latency.unit = "ms";
            latency.maximum =
                static_cast<double>(std::chrono::round<std::chrono::microseconds>(*action.maxTime).count()) / 1000;
            take(latency);
        }
    }
}

/// A step of the plan and its place in the record.
template <class Take>
void eachStep(const Plan& plan, Take take)
{
    const std::vector<Group>* phases[] = {&plan.setup, &plan.main, &plan.teardown};
    constexpr const char* kNames[] = {"setup", "main", "teardown"};
    for (std::size_t phase = 0; phase < std::size(phases); ++phase) {
        for (std::size_t group = 0; group < phases[phase]->size(); ++group) {
            const Group& one = (*phases[phase])[group];
            for (std::size_t step = 0; step < one.steps.size(); ++step) {
                take(kNames[phase], one, one.steps[step], [=](const record::Run& run) {
                    std::vector<const record::Step*> tries;
                    if (phase < run.phases.size() && group < run.phases[phase].groups.size()) {
                        for (const auto& each : run.phases[phase].groups[group].tries) {
                            if (!each.superseded && step < each.steps.size()) {
                                tries.push_back(&each.steps[step]);
                            }
                        }
                    }
                    return tries;
                });
            }
        }
    }
}

std::vector<LimitProof> limitsOf(std::string_view phase, const Group& group, const Step& step)
{
    std::vector<LimitProof> list;
    const auto add = [&](const Expected& expected, bool isMaximum, const std::optional<double>& limit) {
        const bool all = expected.records == Records::kAll && !isMaximum;
        const auto& formula = isMaximum ? expected.maximumOf : expected.minimumOf;
        const std::string computed = formula ? formula->text : all ? kAllRecords : "";
        const bool known = std::ranges::any_of(list, [&](const LimitProof& each) {
            return each.measurement == expected.name && each.isMaximum == isMaximum && each.limit == limit &&
                   each.computed == computed;
        });
        if ((limit || formula || all) && !known) {
            list.push_back({std::string(phase), group.name, step.name, expected.name, isMaximum, limit, expected.unit});
            list.back().computed = computed;
        }
    };
    std::visit(
        [&](const auto& action) {
            eachExpected(action, [&](const Expected& expected) {
                add(expected, false, expected.minimum);
                add(expected, true, expected.maximum);
            });
        },
        step.action);
    return list;
}

/// @param ofStep all limits of the proof's step
void addEvidence(LimitProof& proof, std::span<const LimitProof> ofStep, const record::Measurement& measured,
                 const std::string& run, bool good)
{
    const auto& limit = proof.isMaximum ? measured.limits.maximum : measured.limits.minimum;
    const auto* value = std::get_if<double>(&measured.value);
    if (measured.name != proof.measurement || !limit || value == nullptr) {
        return;
    }
    // A run with other parameters proves nothing about this limit, nor does a value that was measured against a
    // constant limit of another expectation prove a computed one.
    const bool isOfConstant = std::ranges::any_of(ofStep, [&](const LimitProof& each) {
        return each.computed.empty() && each.measurement == proof.measurement && each.isMaximum == proof.isMaximum &&
               each.limit == limit;
    });
    if (proof.computed.empty() ? proof.limit != limit : isOfConstant) {
        return;
    }
    proof.limit = limit;
    proof.unit = measured.unit;
    const bool passed = proof.isMaximum ? isAtMost(*value, *limit) : isAtMost(*limit, *value);
    auto& evidence = !good ? proof.badFailed : passed ? proof.goodPassed : proof.goodFailed;
    if ((good || !passed) && !evidence) {
        evidence = {*value, run};
    }
}

std::string limitText(const LimitProof& proof)
{
    const std::string measurement = record::printable(proof.measurement);
    const std::string demand =
        proof.computed == kAllRecords
            ? fmt::format("all {}", measurement)
            : fmt::format("{} {} {}", measurement, proof.isMaximum ? "at most" : "at least",
                          proof.limit ? record::withUnit(record::toText(*proof.limit), proof.unit) : proof.computed);
    return fmt::format("{} / {}: {}", record::printable(proof.group), record::printable(proof.step), demand);
}

/// @returns whether a run of the plan proves limits, by the first line of its record.
bool proves(const std::filesystem::path& record, const std::string& sha256)
{
    constexpr std::size_t kLongestLine = 1 << 16;
    std::error_code error;
    if (!std::filesystem::is_regular_file(record, error)) {
        return false;
    }
    std::ifstream file(record, std::ios::binary);
    std::string line(kLongestLine, ' ');
    file.getline(line.data(), std::ssize(line));
    const auto started = ordered_json::parse(line.c_str(), nullptr, false);
    const auto hash = started.find("plan_sha256");
    return started.contains("verify_limits") && hash != started.end() && *hash == sha256;
}

}  // namespace

std::string LimitProof::lacks() const
{
    if (goodFailed) {
        return fmt::format("a good unit fails it with {} in {}",
                           record::withUnit(record::toText(goodFailed->value), unit), goodFailed->run);
    }
    if (!goodPassed) {
        return badFailed ? "no good unit has passed it" : "no unit has been measured";
    }
    return badFailed ? "" : "no bad unit has failed it";
}

std::size_t LimitProofs::proven() const
{
    return static_cast<std::size_t>(std::ranges::count_if(limits, &LimitProof::proven));
}

std::vector<LimitProof> limitsOf(const Plan& plan)
{
    std::vector<LimitProof> list;
    eachStep(plan, [&](const char* phase, const Group& group, const Step& step, const auto&) {
        std::ranges::move(limitsOf(phase, group, step), std::back_inserter(list));
    });
    return list;
}

void addEvidence(LimitProofs& proofs, const Plan& plan, const record::Run& run)
{
    const bool good = run.verifies == kGoodUnit;
    ++(good ? proofs.goodRuns : proofs.badRuns);
    std::span<LimitProof> rest = proofs.limits;
    eachStep(plan, [&](const char* phase, const Group& group, const Step& step, const auto& triesOf) {
        const auto ofStep = rest.first(limitsOf(phase, group, step).size());
        rest = rest.subspan(ofStep.size());
        for (LimitProof& proof : ofStep) {
            for (const record::Step* one : triesOf(run)) {
                for (const record::Attempt& attempt : one->attempts) {
                    for (const record::Measurement& each : attempt.measurements) {
                        if (!attempt.superseded) {
                            addEvidence(proof, ofStep, each, run.id, good);
                        }
                    }
                }
            }
        }
    });
}

LimitProofs proveLimits(const Plan& plan, const std::string& sha256, const std::filesystem::path& results)
{
    std::vector<std::filesystem::path> records;
    std::error_code error;
    for (std::filesystem::directory_iterator each(results, error), end; !error && each != end; each.increment(error)) {
        const std::string name = each->path().filename().string();
        const auto record = each->path() / record::kRecordFile;
        if (name.starts_with(plan.name + "-") && !name.ends_with(record::kRunningSuffix) && proves(record, sha256)) {
            records.push_back(record);
        }
    }
    // The time is in the name.
    std::ranges::sort(records);

    LimitProofs proofs;
    proofs.limits = limitsOf(plan);
    if (error && error != std::errc::no_such_file_or_directory) {
        proofs.broken.push_back(fmt::format("{}: {}", results.string(), protocol::unreadable(error.value())));
    }
    for (const auto& record : records) {
        try {
            addEvidence(proofs, plan, record::readRun(record));
        } catch (const record::RecordError& unreadable) {
            proofs.broken.emplace_back(unreadable.what());
        }
    }
    return proofs;
}

protocol::ExitStatus exitStatusOf(const LimitProofs& proofs, std::string_view verifies, protocol::ExitStatus ofRun)
{
    if (ofRun != protocol::kPassed && (ofRun != protocol::kFailed || verifies == kGoodUnit)) {
        return ofRun;
    }
    return proofs.proven() == proofs.limits.size() ? protocol::kPassed : protocol::kFailed;
}

std::string toText(const LimitProofs& proofs)
{
    std::string text = fmt::format("LIMITS  {} of {} proven by {} of good units and {} of bad ones\n", proofs.proven(),
                                   proofs.limits.size(), protocol::plural(proofs.goodRuns, "run"),
                                   protocol::plural(proofs.badRuns, "run"));
    for (const LimitProof& each : proofs.limits) {
        if (!each.proven()) {
            text += fmt::format("        {}: {}\n", limitText(each), each.lacks());
        }
    }
    return text;
}

ordered_json limitsEvent(const LimitProofs& proofs)
{
    const auto evidence = [](const std::optional<LimitProof::Evidence>& one) -> ordered_json {
        return one ? ordered_json{{"value", one->value}, {"run", one->run}} : ordered_json(nullptr);
    };
    ordered_json limits = ordered_json::array();
    for (const LimitProof& each : proofs.limits) {
        limits.push_back({{"phase", each.phase},
                          {"group", each.group},
                          {"step", each.step},
                          {"measurement", each.measurement},
                          {"limit", each.isMaximum ? "maximum" : "minimum"},
                          {"value", each.limit ? ordered_json(*each.limit) : ordered_json(nullptr)},
                          {"unit", each.unit},
                          {"good_passed", evidence(each.goodPassed)},
                          {"good_failed", evidence(each.goodFailed)},
                          {"bad_failed", evidence(each.badFailed)},
                          {"proven", each.proven()}});
    }
    return {{"event", "limits"},         {"good_runs", proofs.goodRuns}, {"bad_runs", proofs.badRuns},
            {"proven", proofs.proven()}, {"limits", std::move(limits)},  {"broken", proofs.broken}};
}

}  // namespace station::plan
