#pragma once

#include <iosfwd>
#include <pugixml.hpp>
#include <string>

#include "station/record/RunRecord.h"
#include "station/record/ValueText.h"

/// Builds a page as a tree, in which every text stays text.
namespace station::record::html {

using Node = pugi::xml_node;

inline Node set(Node node, const char* attribute, const std::string& value)
{
    node.append_attribute(attribute).set_value(printable(value).c_str());
    return node;
}

/// @param styleClass empty for none
inline Node add(Node parent, const char* element, const std::string& styleClass = {})
{
    Node node = parent.append_child(element);
    return styleClass.empty() ? node : set(node, "class", styleClass);
}

inline Node write(Node node, const std::string& text)
{
    node.append_child(pugi::node_pcdata).set_value(printable(text).c_str());
    return node;
}

inline Node addText(Node parent, const char* element, const std::string& text, const std::string& styleClass = {})
{
    return write(add(parent, element, styleClass), text);
}

/// A verdict as a coloured word.
inline Node addChip(Node parent, Verdict verdict)
{
    return addText(parent, "span", name(verdict), std::string("chip ") + wordsOf(verdict).style);
}

/// Adds a fact to a list, unless it is empty.
inline void addFact(Node facts, const std::string& term, const std::string& value, const char* styleClass = "")
{
    if (!value.empty()) {
        Node both = add(facts, "div");
        addText(both, "dt", term);
        addText(both, "dd", value, styleClass);
    }
}

/// Writes a page that fetches and executes nothing, whatever a unit managed to bring in.
void writePage(std::ostream& out, const std::string& title, const pugi::xml_document& body);

}  // namespace station::record::html

namespace station::record {

struct MeasurementFigures;

/// @returns whether a chart can show the measurement: a number with numeric limits. An exact number without a unit is a
/// code, which has no more or less.
bool isDrawn(const Measurement& measurement);

/// Adds an SVG that shows a number against its limits: the allowed range as a band, and the value as a dot in it or a
/// cross beside it. A value too far away to be drawn to scale is an arrow at the edge. Adds nothing if !isDrawn().
/// @param large with the numbers
void addLimitChart(pugi::xml_node parent, const Measurement& measurement, bool large);

/// Adds an SVG that shows how many numbers are where, against their limits: the allowed range as a band, and bars in it
/// and beside it. Numbers too far away to be drawn to scale are counted in words.
void addHistogram(pugi::xml_node parent, const MeasurementFigures& figures);

}  // namespace station::record
