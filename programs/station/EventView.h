#pragma once

#include <memory>
#include <string>

#include "station/monitor/EventFilter.h"
#include "station/trace/Trace.h"

namespace programs::station_tool {

/// Shows the events of a line on standard output.
class EventView : public station::TraceSink
{
public:
    /// Called several times a second.
    virtual void tick() {}
    /// Nothing follows.
    virtual void finish() {}
    /// Prints a diagnostic on standard error.
    virtual void say(const std::string& line);
};

struct EventStyle {
    bool hex = false;  ///< the bytes, too
    bool json = false;
    bool changes = false;  ///< only values that are new; in place on a terminal
};

std::unique_ptr<EventView> makeEventView(station::EventFilter filter, EventStyle style);

}  // namespace programs::station_tool
