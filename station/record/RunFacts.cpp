#include "station/record/RunFacts.h"

#include <algorithm>
#include <utility>

#include "station/record/Outcome.h"

namespace station::record {

namespace {

/// @returns the events during a try.
EventRange eventsOf(const Group::Try& one)
{
    EventRange range;
    bool found = false;
    for (const Step& step : one.steps) {
        if (!step.attempts.empty()) {
            range.begin = found ? range.begin : step.attempts.front().events.begin;
            range.end = step.attempts.back().events.end;
            found = true;
        }
    }
    return range;
}

}  // namespace

RunFacts::RunFacts(Run& run, std::size_t whole, OnClosed onClosed)
    : run_(run), whole_(whole), onClosed_(std::move(onClosed))
{
}

Group& RunFacts::beginGroup(Phase& phase, std::string name)
{
    group_ = &phase.groups.emplace_back();
    group_->name = std::move(name);
    return *group_;
}

Group::Try& RunFacts::beginTry()
{
    return group_->tries.emplace_back();
}

void RunFacts::endTry(bool superseded)
{
    Group::Try& last = group_->tries.back();
    last.superseded = superseded;
    const bool wasWhole = steps_ <= whole_;
    steps_ += last.steps.size();
    if (wasWhole && steps_ > whole_) {
        for (Phase& phase : run_.phases) {
            for (Group& group : phase.groups) {
                leaveOut(group, false);
            }
        }
    } else {
        leaveOut(*group_, false);
    }
}

void RunFacts::end()
{
    for (const auto& [group, large] : std::map(large_)) {
        leaveOut(*group, true);
    }
}

void RunFacts::leaveOut(Group& group, bool all)
{
    if (steps_ <= whole_ || (group.tries.size() <= kWholeGroup && !large_.contains(&group))) {
        return;
    }
    Large& large = large_[&group];
    const std::size_t closed = group.numbers.size();
    std::size_t open = group.tries.size();
    for (std::size_t following = 0; open > closed && !all && following < kOpenSteps;) {
        following += std::max<std::size_t>(group.tries[--open].steps.size(), 1);
    }
    for (std::size_t index = closed; index < open;) {
        const bool kept = close(group, large, index);
        index += kept ? 1 : 0;
        open -= kept ? 0 : 1;
    }
}

/// @returns whether the try stays.
bool RunFacts::close(Group& group, Large& large, std::size_t index)
{
    const auto at = group.tries.begin() + static_cast<std::ptrdiff_t>(index);
    onClosed_(*at);
    const EventRange events = eventsOf(*at);
    const std::size_t number = group.rounds.tries;
    add(group.rounds, *at, large.afterSuperseded);
    large.afterSuperseded = at->superseded;
    const bool kept = keep(large, *at);
    if (events.end > 0) {
        const std::size_t begin = number == 0 ? events.begin : large.position;
        run_.events.release({begin, kept ? events.begin : events.end});
        large.position = events.end;
    }
    if (kept) {
        group.numbers.push_back(number);
    } else {
        group.tries.erase(at);
    }
    return kept;
}

bool RunFacts::keep(Large& large, const Group::Try& one) const
{
    const Verdict verdict = verdictOf(one);
    const bool example = !one.superseded && !isBad(verdict);
    const std::size_t kind = one.superseded ? 3 : isBad(verdict) ? 2 : verdict == Verdict::kPass ? 1 : 0;
    std::size_t& kept = large.kept[kind];
    std::size_t& keptSteps = large.keptSteps[kind];
    const bool room = keptSteps == 0 || keptSteps + one.steps.size() <= kKeptSteps;
    if (example ? kept > 0 : kept == kKeptFailures || !room) {
        return false;
    }
    ++kept;
    keptSteps += one.steps.size();
    return true;
}

}  // namespace station::record
