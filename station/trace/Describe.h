#pragma once

#include <string>

#include "protocol/catalogue/Model.h"
#include "station/trace/Attribution.h"
#include "station/trace/Trace.h"

/// How line events are written for people, the same wherever they are shown.
namespace station {

/// @returns "sent", "received", "corrupt", "lost" or "back".
const char* name(TraceEvent::Kind kind);

/// @returns "→", "←", or "!" for anything but a good frame.
const char* arrow(TraceEvent::Kind kind);

/// @returns the kind as a caption: "→ to unit", "← from unit", "← damaged", "✕ port gone", "✓ port back".
const char* caption(TraceEvent::Kind kind);

/// @returns code and parameters as people read them: `8F 00 [01]`, `8A 0F [** **]` when they are masked; nothing for an
/// event without a frame.
std::string frameText(const TraceEvent& event);

/// @returns the frame's bytes as people read them: `8F 00 [01]`, every byte of a damaged frame, nothing for an event
/// without a frame.
std::string bytesText(const TraceEvent& event);

/// @returns the event in one line, without time and direction: "tuner.frequency: frequency=9470 (94.7 MHz on FM)",
/// "8F 00 [01]: wrong checksum", "/dev/ttyUSB0: the other end has closed the line".
/// Never contains control characters.
std::string describe(protocol::catalogue::Groups groups, const TraceEvent& event,
                     const protocol::catalogue::Decoded& decoded);

}  // namespace station
