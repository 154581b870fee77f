#include "station/record/RunRecord.h"

#include <algorithm>
#include <array>
#include <utility>

namespace station::record {

namespace {

/// The worst last.
constexpr std::array kBySeverity{
    std::pair{Verdict::kSkipped, "SKIPPED"}, std::pair{Verdict::kPass, "PASS"},
    std::pair{Verdict::kFail, "FAIL"},       std::pair{Verdict::kTimeout, "TIMEOUT"},
    std::pair{Verdict::kError, "ERROR"},     std::pair{Verdict::kAborted, "ABORTED"},
};

std::size_t severity(Verdict verdict)
{
    std::size_t place = 0;
    while (place + 1 < kBySeverity.size() && kBySeverity[place].first != verdict) {
        ++place;
    }
    return place;
}

/// @returns whether the number was there.
bool eraseSorted(std::deque<std::size_t>& numbers, std::size_t number)
{
    const auto at = std::ranges::lower_bound(numbers, number);
    if (at == numbers.end() || *at != number) {
        return false;
    }
    numbers.erase(at);
    return true;
}

}  // namespace

const char* name(Verdict verdict)
{
    return kBySeverity[severity(verdict)].second;
}

Verdict worse(Verdict one, Verdict other)
{
    return severity(one) >= severity(other) ? one : other;
}

std::size_t Events::add(TraceEvent event)
{
    const std::size_t number = next_++;
    const bool asked = event.kind == TraceEvent::Kind::kSent;
    kept_.emplace_hint(kept_.end(), number, std::move(event));
    if (asked) {
        return number;
    }
    if (first_.size() < kKept) {
        first_.push_back(number);
        return number;
    }
    last_.push_back(number);
    if (last_.size() > kKept) {
        kept_.erase(last_.front());
        last_.pop_front();
    }
    return number;
}

void Events::claim(std::size_t number, const TraceEvent& event)
{
    if (!eraseSorted(last_, number) && !eraseSorted(first_, number)) {
        kept_.try_emplace(number, event);
    }
}

void Events::restore(std::size_t number, TraceEvent event)
{
    kept_.insert_or_assign(number, std::move(event));
    next_ = std::max(next_, number + 1);
}

void Attempt::add(const Finding& finding)
{
    verdict = worse(verdict, finding.verdict);
    reason += (reason.empty() ? "" : "; ") + finding.text;
}

}  // namespace station::record
