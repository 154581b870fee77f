#pragma once

#include <utility>
#include <vector>

#include "station/trace/Trace.h"

namespace station {

/// Passes everything on to several sinks, in their order. The sinks outlive it.
class FanOut : public TraceSink
{
public:
    explicit FanOut(std::vector<TraceSink*> sinks) : sinks_(std::move(sinks)) {}

    void on(const TraceEvent& event) override
    {
        for (TraceSink* sink : sinks_) {
            sink->on(event);
        }
    }

private:
    std::vector<TraceSink*> sinks_;
};

}  // namespace station
