#pragma once

#include <cstddef>
#include <filesystem>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/Errors.h"
#include "station/plan/Plan.h"
#include "station/record/RunRecord.h"

/// Proves the limits of a plan with real units: a good unit passes each `min` and `max`, and a bad one fails it. The
/// evidence is in the records of the runs.
namespace station::plan {

/// A `min` or `max` of a plan, and the units that were measured against it.
struct LimitProof {
    /// A measured value, and the run that measured it.
    struct Evidence {
        double value = 0;
        std::string run;
    };

    std::string phase;
    std::string group;
    std::string step;
    std::string measurement;
    bool isMaximum = false;
    /// As the latest run had it; nothing as long as there is none.
    std::optional<double> limit;
    std::string unit;
    /// What a limit says that only a run knows: "all", "${before} - 5"; empty for others.
    std::string computed = {};
    std::optional<Evidence> goodPassed = {};
    std::optional<Evidence> goodFailed = {};
    std::optional<Evidence> badFailed = {};

    bool proven() const { return goodPassed && badFailed && !goodFailed; }
    /// @returns what the proof lacks; empty if it is complete.
    std::string lacks() const;
};

struct LimitProofs {
    std::size_t goodRuns = 0;
    std::size_t badRuns = 0;
    /// In the order of the plan.
    std::vector<LimitProof> limits;
    /// A line for each record that cannot be read, and for the directory.
    std::vector<std::string> broken;

    std::size_t proven() const;
};

/// The words for a unit that proves limits.
inline constexpr std::string_view kGoodUnit = "good";
inline constexpr std::string_view kBadUnit = "bad";

/// @returns the limits of a plan without any evidence.
std::vector<LimitProof> limitsOf(const Plan& plan);

/// Adds the evidence of a run of the plan. Attempts and tries that were superseded do not count.
void addEvidence(LimitProofs& proofs, const Plan& plan, const record::Run& run);

/// @returns the proofs from all finished runs in the directory that were made for them, of the plan with this hash.
LimitProofs proveLimits(const Plan& plan, const std::string& sha256, const std::filesystem::path& results);

/// @returns the exit status after a run with a unit that is `verifies`, from the run's own. A bad unit that does not
/// answer is not a bad unit that fails.
protocol::ExitStatus exitStatusOf(const LimitProofs& proofs, std::string_view verifies, protocol::ExitStatus ofRun);

/// @returns how many limits are proven and each that is not: several lines, each with its end.
std::string toText(const LimitProofs& proofs);

/// @returns the event `limits` of `plan run --json`.
nlohmann::ordered_json limitsEvent(const LimitProofs& proofs);

}  // namespace station::plan
