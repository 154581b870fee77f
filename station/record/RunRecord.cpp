#include "station/record/RunRecord.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <utility>

namespace station::record {

namespace {

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

const VerdictWords& wordsOf(Verdict verdict)
{
    static constexpr std::array kWords{
        VerdictWords{"SKIPPED", "skipped", "skipped", "\033[2m", "Not run."},
        VerdictWords{"PASS", "passed", "pass", "\033[32m", "Every value is as the plan demands."},
        VerdictWords{"FAIL", "failed", "fail", "\033[1;31m",
                     "The unit answered, but a value is not as the plan demands."},
        VerdictWords{"TIMEOUT", "timed out", "timeout", "\033[1;33m", "The unit did not answer in time."},
        VerdictWords{"ERROR", "in error", "error", "\033[1;38;5;208m",
                     "The line to the unit failed, or the unit sent something that cannot be understood."},
        VerdictWords{"ABORTED", "aborted", "aborted", "\033[1;35m", "The run was ended early."},
    };
    return kWords[static_cast<std::size_t>(verdict)];
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

void Events::release(EventRange range)
{
    const auto unexpected = [this](std::size_t number) {
        return std::ranges::binary_search(first_, number) || std::ranges::binary_search(last_, number);
    };
    for (auto at = kept_.lower_bound(range.begin); at != kept_.end() && at->first < range.end;) {
        at = unexpected(at->first) ? std::next(at) : kept_.erase(at);
    }
}

void Statistic::add(double number)
{
    minimum = count == 0 ? number : std::min(minimum, number);
    maximum = count == 0 ? number : std::max(maximum, number);
    ++count;
    const double difference = number - mean;
    mean += difference / static_cast<double>(count);
    squares += difference * (number - mean);
}

double Statistic::sigma() const
{
    return count < 2 ? 0 : std::sqrt(squares / static_cast<double>(count - 1));
}

void Timeline::add(std::chrono::system_clock::time_point round, bool failed)
{
    if (intervals.empty()) {
        start = round;
    }
    const auto after = std::max(std::chrono::nanoseconds(round - start), std::chrono::nanoseconds(0));
    while (after / width >= static_cast<std::int64_t>(kMost)) {
        width *= 2;
        for (std::size_t i = 0; i < intervals.size(); ++i) {
            const Interval one = std::exchange(intervals[i], {});
            intervals[i / 2].rounds += one.rounds;
            intervals[i / 2].failed += one.failed;
        }
        intervals.resize((intervals.size() + 1) / 2);
    }
    const auto index = static_cast<std::size_t>(after / width);
    intervals.resize(std::max(intervals.size(), index + 1));
    ++intervals[index].rounds;
    intervals[index].failed += failed ? 1 : 0;
}

void Attempt::add(const Finding& finding)
{
    verdict = worse(verdict, finding.verdict);
    reason += (reason.empty() ? "" : "; ") + finding.text;
}

}  // namespace station::record
