#include "station/plan/Speed.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <optional>
#include <utility>
#include <vector>

namespace station::plan {

namespace {

/// An attempt, and how long the unit took of it.
struct Timed {
    const record::Attempt* attempt;
    std::optional<Duration> unit;
};

/// @returns the time between the command and its answer; zero for a command without one, nothing for an attempt that
/// waited for its own time to be over.
std::optional<Duration> unitTime(const record::Run& run, const record::Step& step, const record::Attempt& attempt)
{
    if (step.kind != "send" || attempt.verdict != record::Verdict::kPass) {
        return std::nullopt;
    }
    const auto& kept = run.events.kept();
    const auto begin = kept.lower_bound(attempt.events.begin);
    const auto end = kept.lower_bound(attempt.events.end);
    const auto sent =
        std::find_if(begin, end, [](const auto& each) { return each.second.kind == TraceEvent::Kind::kSent; });
    if (sent == end) {
        return std::nullopt;
    }
    const TraceEvent& last = std::prev(end)->second;
    if (last.kind == TraceEvent::Kind::kReceived) {
        return last.steady - sent->second.steady;
    }
    const bool waited = attempt.duration > std::chrono::milliseconds(50);
    return waited ? std::nullopt : std::optional(Duration(0));
}

std::vector<Timed> timedAttempts(const record::Run& run)
{
    std::vector<Timed> list;
    for (const auto& phase : run.phases) {
        for (const auto& group : phase.groups) {
            for (const auto& round : group.tries) {
                for (const auto& step : round.steps) {
                    for (const auto& attempt : step.attempts) {
                        list.push_back({&attempt, unitTime(run, step, attempt)});
                    }
                }
            }
        }
    }
    return list;
}

}  // namespace

Speed speedOf(const record::Run& run)
{
    Speed speed;
    speed.total = run.ended - run.started;
    std::vector<Duration> added;
    const auto attempts = timedAttempts(run);
    for (std::size_t i = 0; i < attempts.size(); ++i) {
        const record::Attempt& attempt = *attempts[i].attempt;
        speed.wire += attempt.wireTime;
        if (!attempts[i].unit) {
            continue;
        }
        const Duration whole =
            i + 1 < attempts.size() ? Duration(attempts[i + 1].attempt->started - attempt.started) : attempt.duration;
        added.push_back(whole - *attempts[i].unit);
    }
    speed.steps = added.size();
    if (!added.empty()) {
        const auto middle = added.begin() + static_cast<std::ptrdiff_t>(added.size() / 2);
        std::ranges::nth_element(added, middle);
        speed.addedPerStep = *middle;
    }
    return speed;
}

}  // namespace station::plan
