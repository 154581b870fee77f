#pragma once

#include <cstddef>
#include <deque>
#include <vector>

#include "station/plan/Observer.h"
#include "station/record/RunRecord.h"

namespace station::plan {

/// Keeps what passes on the line, for the record and for the steps that look at it. For one thread.
class LineRecord : public TraceSink
{
public:
    LineRecord(record::Run& run, Observer& observer) : run_(run), observer_(observer) {}

    void on(const TraceEvent& event) override;

    /// A frame that came since the last forget().
    struct Arrival {
        TraceEvent event;
        /// Whether a step has made something of it.
        bool claimed = false;
        /// Whether it came after the last frame that was sent.
        bool afterSending = false;
    };

    std::deque<Arrival>& arrivals() { return arrivals_; }
    void forget() { arrivals_.clear(); }

    /// Where the next event goes in the run's trace.
    std::size_t position() const { return run_.trace.size(); }
    std::vector<TraceEvent> since(std::size_t position) const;

private:
    record::Run& run_;
    Observer& observer_;
    std::deque<Arrival> arrivals_;
};

/// @returns how long the frames of some events take on a line.
Duration wireTime(const std::vector<TraceEvent>& events, unsigned baud);

}  // namespace station::plan
