#include "station/plan/LineWatch.h"

namespace station::plan {

namespace {

/// A unit may send frames without end; the steps look at the latest.
constexpr std::size_t kMostArrivals = 4096;

}  // namespace

void LineWatch::on(const TraceEvent& event)
{
    // The steps see the secrets; the record and the observer do not.
    const TraceEvent shown = mask_(event);
    const std::size_t number = run_.events.add(shown);
    auto meaning = attribution_.on(event);
    if (hasFrame(event.kind)) {
        bytes_ += protocol::frameLength(event.frame.params.size());
    }
    if (event.kind == TraceEvent::Kind::kSent) {
        for (auto& arrival : arrivals_) {
            arrival.afterSending = false;
        }
    } else if (event.aside) {
        run_.events.claim(number, event);
        observer_.onClaimed(number);
    } else if (event.kind == TraceEvent::Kind::kReceived) {
        if (arrivals_.size() == kMostArrivals) {
            arrivals_.pop_front();
        }
        arrivals_.push_back({event, std::move(meaning), number, false, true});
    }
    observer_.onFrame(shown);
}

void LineWatch::claim(Arrival& arrival)
{
    arrival.claimed = true;
    run_.events.claim(arrival.number, mask_(arrival.event));
    observer_.onClaimed(arrival.number);
}

bool LineWatch::latestAnswers() const
{
    if (arrivals_.empty()) {
        return false;
    }
    const auto& request = arrivals_.back().meaning.request;
    return request && request->number == attribution_.requests() && !request->answered;
}

Duration LineWatch::wireTime() const
{
    constexpr std::size_t kBitsPerByte = 10;
    const unsigned baud = run_.unit.baud;
    return baud == 0 ? Duration(0) : Duration(std::chrono::seconds(bytes_ * kBitsPerByte)) / baud;
}

}  // namespace station::plan
