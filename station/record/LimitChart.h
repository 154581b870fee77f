#pragma once

#include <pugixml.hpp>

#include "station/record/RunRecord.h"

namespace station::record {

/// Adds an SVG that shows a number against its limits: the range that is allowed as a band, the value as a dot in it
/// or as a cross beside it. A value too far away to be drawn to scale is an arrow at the edge.
/// Adds nothing for what is no number or has no limits that are numbers.
/// @param large with the numbers written in it
void addLimitChart(pugi::xml_node parent, const Measurement& measurement, bool large);

}  // namespace station::record
