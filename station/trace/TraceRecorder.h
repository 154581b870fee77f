#pragma once

#include <utility>
#include <vector>

#include "station/trace/Trace.h"

namespace station {

/// Keeps everything. For one thread.
class TraceRecorder : public TraceSink
{
public:
    void on(const TraceEvent& event) override { events_.push_back(event); }

    const std::vector<TraceEvent>& events() const { return events_; }

    /// @returns what has been kept, and begins anew.
    std::vector<TraceEvent> take() { return std::exchange(events_, {}); }

private:
    std::vector<TraceEvent> events_;
};

}  // namespace station
