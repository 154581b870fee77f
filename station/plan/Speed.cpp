#include "station/plan/Speed.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace station::plan {

namespace {

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

}  // namespace

void SpeedMeter::add(const record::Run& run, const record::Step& step)
{
    for (const record::Attempt& attempt : step.attempts) {
        wire_ += attempt.wireTime;
        if (const auto last = std::exchange(last_, std::nullopt)) {
            add(attempt.started - last->started - last->unit);
        }
        if (const auto unit = unitTime(run, step, attempt)) {
            last_ = {attempt.started, attempt.duration, *unit};
        }
    }
}

void SpeedMeter::add(Duration added)
{
    if (steps_++ % every_ != 0) {
        return;
    }
    added_.push_back(added);
    if (added_.size() == kMost) {
        for (std::size_t i = 0; i < kMost / 2; ++i) {
            added_[i] = added_[2 * i];
        }
        added_.resize(kMost / 2);
        every_ *= 2;
    }
}

Speed SpeedMeter::speed() const
{
    Speed speed;
    speed.wire = wire_;
    std::vector<Duration> added = added_;
    if (last_) {
        added.push_back(last_->duration - last_->unit);
    }
    speed.steps = steps_ + (last_ ? 1 : 0);
    if (!added.empty()) {
        const auto middle = added.begin() + static_cast<std::ptrdiff_t>(added.size() / 2);
        std::ranges::nth_element(added, middle);
        speed.addedPerStep = *middle;
    }
    return speed;
}

}  // namespace station::plan
