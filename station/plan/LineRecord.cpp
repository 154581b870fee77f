#include "station/plan/LineRecord.h"

namespace station::plan {

namespace {

/// What nobody asks for may come without end; the record has all of it.
constexpr std::size_t kMostArrivals = 4096;

}  // namespace

void LineRecord::on(const TraceEvent& event)
{
    run_.trace.push_back(event);
    if (event.kind == TraceEvent::Kind::kSent) {
        for (auto& arrival : arrivals_) {
            arrival.afterSending = false;
        }
    } else if (event.kind == TraceEvent::Kind::kReceived) {
        if (arrivals_.size() == kMostArrivals) {
            arrivals_.pop_front();
        }
        arrivals_.push_back({event, false, true});
    }
    observer_.onFrame(event);
}

std::vector<TraceEvent> LineRecord::since(std::size_t position) const
{
    return {run_.trace.begin() + static_cast<std::ptrdiff_t>(position), run_.trace.end()};
}

Duration wireTime(const std::vector<TraceEvent>& events, unsigned baud)
{
    constexpr std::size_t kBitsPerByte = 10;
    std::size_t bytes = 0;
    for (const TraceEvent& event : events) {
        if (event.kind == TraceEvent::Kind::kSent || event.kind == TraceEvent::Kind::kReceived ||
            event.kind == TraceEvent::Kind::kCorrupt) {
            bytes += protocol::frameLength(event.frame.params.size());
        }
    }
    return baud == 0 ? Duration(0) : Duration(std::chrono::seconds(bytes * kBitsPerByte)) / baud;
}

}  // namespace station::plan
