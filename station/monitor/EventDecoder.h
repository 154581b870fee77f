#pragma once

#include <string>

#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/Model.h"
#include "station/trace/Trace.h"

namespace station {

/// Makes sense of a line's events, one after the other: it remembers the command that was sent last, as two commands
/// may share the code of their reply.
class EventDecoder
{
public:
    /// @param groups outlive the decoder and all that it returns.
    explicit EventDecoder(protocol::catalogue::Groups groups) : groups_(groups) {}

    /// @returns what the event's frame means; for a corrupt one, and for an event without a frame, nothing known.
    protocol::catalogue::Decoded decode(const TraceEvent& event);

    protocol::catalogue::Groups groups() const { return groups_; }

private:
    protocol::catalogue::Groups groups_;
    const protocol::catalogue::Command* asked_ = nullptr;
};

/// @returns "sent", "received", "corrupt", "lost" or "back".
const char* name(TraceEvent::Kind kind);

/// @returns what happened in one line, without time and direction: "tuner.frequency: frequency=9470 (94.7 MHz on FM)",
/// "8F 00 [01]: wrong checksum", "/dev/ttyUSB0: the other end has closed the line". Never contains control characters.
std::string describe(protocol::catalogue::Groups groups, const TraceEvent& event,
                     const protocol::catalogue::Decoded& decoded);

}  // namespace station
