#pragma once

#include <string>
#include <vector>

#include "protocol/catalogue/Model.h"
#include "station/trace/Trace.h"

/// What passed on a line, in words.
namespace station::record {

/// @returns "sent", "received", "corrupt", "lost", "back", as record.json has it.
const char* name(TraceEvent::Kind kind);

/// @returns whether such an event has a frame.
constexpr bool hasFrame(TraceEvent::Kind kind)
{
    return kind == TraceEvent::Kind::kSent || kind == TraceEvent::Kind::kReceived || kind == TraceEvent::Kind::kCorrupt;
}

/// @returns for each event what it means, by the catalogue, in one printable line: "tuner.play: frequency=8750 …".
/// A reply is read as one to the command that was sent last before it.
std::vector<std::string> meaningOf(const std::vector<TraceEvent>& events, protocol::catalogue::Groups groups);

/// @returns the frame as people read it, `8F 00 [01]`, every byte of a damaged one, and nothing for an event without
/// a frame.
std::string bytesOf(const TraceEvent& event);

}  // namespace station::record
