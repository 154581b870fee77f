#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <vector>

#include "station/trace/Trace.h"

namespace station {

/// Keeps the newest events, for a view that another thread draws.
class TraceRing : public TraceSink
{
public:
    explicit TraceRing(std::size_t capacity) : capacity_(capacity) {}

    void on(const TraceEvent& event) override
    {
        const std::lock_guard lock(mutex_);
        events_.push_back(event);
        if (events_.size() > capacity_) {
            events_.pop_front();
        }
    }

    /// @returns a copy, the oldest first.
    std::vector<TraceEvent> newest() const
    {
        const std::lock_guard lock(mutex_);
        return {events_.begin(), events_.end()};
    }

private:
    std::size_t capacity_;
    mutable std::mutex mutex_;
    std::deque<TraceEvent> events_;  // guarded by mutex_
};

}  // namespace station
