#pragma once

#include <nlohmann/json.hpp>

#include "protocol/catalogue/Codec.h"

namespace programs::station_tool {

/// @returns the meaning of a frame; every verb prints frames in this form:
///
///     {"cmd_one": 130, "cmd_two": 1, "params": "24 FE", "kind": "reply", "key": "tuner.frequency",
///      "fields": {"frequency": {"value": 9470, "text": "9470 (94.7 MHz on FM)", …}}, "problems": []}
///
/// "kind" is "request", "reply", "later", "notice" or "unknown". Further keys are there where they apply: "when", and
/// "rest" (hexadecimal); of a field "choice", "unit", "scaled" with "value" and "unit", "problem".
nlohmann::ordered_json frameJson(protocol::catalogue::Groups groups, const protocol::catalogue::Decoded& decoded,
                                 const protocol::Frame& frame);

}  // namespace programs::station_tool
