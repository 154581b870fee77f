#pragma once

#include <pugixml.hpp>

#include "station/record/RunRecord.h"

namespace station::record {

/// @returns whether there is something to draw: a number with limits that are numbers, but for one that has to be met
/// exactly and has no unit: that is a code, there is no more or less of it.
bool isDrawn(const Measurement& measurement);

/// Adds an SVG that shows a number against its limits: the range that is allowed as a band, the value as a dot in it
/// or as a cross beside it. A value too far away to be drawn to scale is an arrow at the edge.
/// Adds nothing for what is not drawn.
/// @param large with the numbers written in it
void addLimitChart(pugi::xml_node parent, const Measurement& measurement, bool large);

}  // namespace station::record
