#pragma once

#include <pugixml.hpp>
#include <string>

#include "station/record/RunRecord.h"
#include "station/record/ValueText.h"

/// Small words for building a page as a tree: whatever text goes in, it stays text.
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

/// @returns the style class that gives a verdict its colour.
inline const char* classOf(Verdict verdict)
{
    switch (verdict) {
        case Verdict::kPass:
            return "pass";
        case Verdict::kFail:
            return "fail";
        case Verdict::kError:
            return "error";
        case Verdict::kTimeout:
            return "timeout";
        case Verdict::kAborted:
            return "aborted";
        case Verdict::kSkipped:
            return "skipped";
    }
    return "";
}

/// A verdict as a coloured word.
inline Node addChip(Node parent, Verdict verdict)
{
    return addText(parent, "span", name(verdict), std::string("chip ") + classOf(verdict));
}

}  // namespace station::record::html
