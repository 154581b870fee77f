#include "station/record/RunStatistics.h"

#include <algorithm>
#include <array>
#include <limits>
#include <set>
#include <utility>

namespace station::record {

namespace {

double shareOf(std::size_t part, std::size_t all)
{
    return all == 0 ? std::numeric_limits<double>::quiet_NaN() : static_cast<double>(part) / static_cast<double>(all);
}

bool countsForYield(const ListedRun& run)
{
    return !run.running && run.verifies.empty() && run.verdict != Verdict::kAborted && run.verdict != Verdict::kSkipped;
}

/// Joins the series of many runs.
class Joiner
{
public:
    explicit Joiner(RunStatistics& to) : to_(to) {}

    void add(const std::string& plan, const RunFigures& figures)
    {
        // Runs of a plan share their keys, so their places are looked up once.
        auto [found, isNew] = known_.try_emplace({plan, figures.keys.get()});
        if (isNew) {
            held_.push_back(figures.keys);
            for (const MeasurementKey& key : *figures.keys) {
                found->second.push_back(placeOf(plan, key));
            }
        }
        for (std::size_t i = 0; i < figures.series.size(); ++i) {
            if (const Place& place = found->second[i]; place.row != kNone) {
                // With other limits in between, the last number and the next one are not neighbours.
                std::size_t& last = lastRow_[place.value];
                to_.measurements[place.row].series.append(figures.series[i], last == place.row);
                last = place.row;
            }
        }
    }

private:
    static constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();

    struct Place {
        /// Of the measurement with these limits.
        std::size_t row = kNone;
        /// Of what is measured, whatever its limits.
        std::size_t value = 0;
    };

    Place placeOf(const std::string& plan, const MeasurementKey& key)
    {
        const auto value = values_.try_emplace({plan, pack({{key.phase, key.group, key.step, key.name, key.unit, {}}})},
                                               lastRow_.size());
        if (value.second) {
            lastRow_.push_back(kNone);
        }
        const auto row = rows_.try_emplace({plan, pack({key})}, to_.measurements.size());
        if (row.second && to_.measurements.size() == RunStatistics::kMost) {
            rows_.erase(row.first);
            to_.cut = true;
            return {};
        }
        if (row.second) {
            to_.measurements.push_back({plan, key, {}, {}});
        }
        return {row.first->second, value.first->second};
    }

    RunStatistics& to_;
    std::map<std::pair<std::string, const void*>, std::vector<Place>> known_;
    /// So that no other keys get the address of known ones.
    std::vector<std::shared_ptr<const std::vector<MeasurementKey>>> held_;
    std::map<std::pair<std::string, std::string>, std::size_t> values_;
    std::map<std::pair<std::string, std::string>, std::size_t> rows_;
    std::vector<std::size_t> lastRow_;
};

/// By plan, group and step.
using FailureCounts = std::map<std::array<std::string, 3>, std::size_t>;

std::vector<CommonFailure> ranked(const FailureCounts& counts)
{
    std::vector<CommonFailure> all;
    std::size_t sum = 0;
    for (const auto& [place, runs] : counts) {
        all.push_back({place[0], place[1], place[2], runs, 0, 0});
        sum += runs;
    }
    std::ranges::stable_sort(all, std::greater(), &CommonFailure::runs);
    std::size_t before = 0;
    for (CommonFailure& each : all) {
        before += each.runs;
        each.share = shareOf(each.runs, sum);
        each.cumulative = shareOf(before, sum);
    }
    return all;
}

}  // namespace

double PlanYield::firstPassYield() const
{
    return shareOf(firstPassed, units);
}

double PlanYield::retestRate() const
{
    return shareOf(retests, runs - withoutSerial);
}

void PlanYield::add(const PlanYield& other)
{
    runs += other.runs;
    passed += other.passed;
    withoutSerial += other.withoutSerial;
    units += other.units;
    firstPassed += other.firstPassed;
    retests += other.retests;
}

PlanYield RunStatistics::total() const
{
    PlanYield all;
    for (const PlanYield& each : plans) {
        all.add(each);
    }
    return all;
}

RunStatistics statisticsOf(RunIndex& index, const RunFilter& filter, const Interrupt* interrupt)
{
    RunStatistics statistics;
    RunList list = index.list();
    statistics.broken = std::move(list.broken);
    // The oldest first.
    std::ranges::reverse(list.runs);
    std::map<std::string, PlanYield> plans;
    std::set<std::pair<std::string, std::string>> seen;
    std::vector<ListedRun> counted;
    for (ListedRun& run : list.runs) {
        const bool matches = filter.matches(run);
        if (!countsForYield(run)) {
            const char* why = run.running ? "RUNNING" : run.verifies.empty() ? name(run.verdict) : "VERIFYING LIMITS";
            statistics.notCounted[why] += matches ? 1 : 0;
            continue;
        }
        const bool isFirst = !run.serial.empty() && seen.emplace(run.plan, run.serial).second;
        if (!matches) {
            continue;
        }
        const bool passed = run.verdict == Verdict::kPass;
        plans[run.plan].add({run.plan, 1, passed ? 1U : 0U, run.serial.empty() ? 1U : 0U, isFirst ? 1U : 0U,
                             isFirst && passed ? 1U : 0U, isFirst || run.serial.empty() ? 0U : 1U});
        counted.push_back(std::move(run));
    }
    std::erase_if(statistics.notCounted, [](const auto& each) { return each.second == 0; });
    for (auto& [plan, yield] : plans) {
        yield.plan = plan;
        statistics.plans.push_back(yield);
    }

    Joiner joiner(statistics);
    FailureCounts failures;
    index.figures(counted, interrupt, statistics.broken, [&](const ListedRun& run, const RunFigures& figures) {
        joiner.add(run.plan, figures);
        if (run.verdict != Verdict::kPass) {
            ++failures[{run.plan, figures.failedGroup, figures.failedStep}];
        }
    });
    statistics.failures = ranked(failures);
    for (MeasurementFigures& each : statistics.measurements) {
        each.capability = capabilityOf(each.series, each.key.limits);
    }
    return statistics;
}

}  // namespace station::record
