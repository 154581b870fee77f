#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>

#include "station/record/Html.h"

namespace station::record {

namespace {

using html::add;
using html::Node;
using html::set;

/// A value farther away than this many widths of the allowed range is not drawn to scale.
constexpr double kFarthest = 4;

/// The part of the number line that is drawn.
struct Axis {
    double from = 0;
    double to = 0;
    /// The allowed range; open ends reach to the edge.
    std::optional<double> minimum;
    std::optional<double> maximum;
};

/// In pixels of the drawing.
struct Frame {
    double width = 0;
    double height = 0;
    double margin = 0;
    double middle = 0;
};

std::optional<Axis> axisOf(const Measurement& measurement)
{
    const auto* number = std::get_if<double>(&measurement.value);
    if (number == nullptr || !std::isfinite(*number)) {
        return std::nullopt;
    }
    const double value = *number;
    const Limits& limits = measurement.limits;
    Axis axis{0, 0, limits.minimum, limits.maximum};
    if (limits.equals) {
        const auto* wanted = std::get_if<double>(&*limits.equals);
        if (wanted == nullptr || measurement.unit.empty()) {
            return std::nullopt;
        }
        axis.minimum = axis.maximum = *wanted;
    }
    if (!axis.minimum && !axis.maximum) {
        return std::nullopt;
    }
    const double low = axis.minimum.value_or(*axis.maximum);
    const double high = axis.maximum.value_or(*axis.minimum);
    double width = high - low;
    if (width <= 0) {
        // One number only: the scale comes from how far away the value is.
        const double distance = std::abs(value - low);
        width = distance > 0 ? distance : std::max(std::abs(low) * 0.1, 1.0);
    }
    axis.from = std::min(low, std::max(value, low - kFarthest * width)) - width * 0.25;
    axis.to = std::max(high, std::min(value, high + kFarthest * width)) + width * 0.25;
    return std::isfinite(axis.from) && std::isfinite(axis.to) && axis.to > axis.from ? std::optional(axis)
                                                                                     : std::nullopt;
}

class Drawing
{
public:
    Drawing(Node svg, const Axis& axis, const Frame& frame) : svg_(svg), axis_(axis), frame_(frame) {}

    double x(double value) const
    {
        const double share = std::clamp((value - axis_.from) / (axis_.to - axis_.from), 0.0, 1.0);
        return frame_.margin + share * (frame_.width - 2 * frame_.margin);
    }

    void rect(double left, double right, double height, const char* styleClass)
    {
        Node node = add(svg_, "rect", styleClass);
        number(node, "x", left);
        number(node, "y", frame_.middle - height / 2);
        number(node, "width", std::max(right - left, 2.0));
        number(node, "height", height);
        set(node, "rx", "1.5");
    }

    /// @param points in pixels from the middle of the marker
    void marker(double at, const char* path, const std::string& styleClass)
    {
        Node node = add(svg_, "path", styleClass);
        set(node, "d", path);
        set(node, "transform", fmt::format("translate({:.1f} {:.1f})", at, frame_.middle));
    }

    void label(double at, double y, const char* anchor, const std::string& words, const std::string& styleClass)
    {
        Node node = html::addText(svg_, "text", words, styleClass);
        number(node, "x", at);
        number(node, "y", y);
        set(node, "text-anchor", anchor);
    }

private:
    static void number(Node node, const char* attribute, double value)
    {
        set(node, attribute, fmt::format("{:.1f}", value));
    }

    Node svg_;
    const Axis& axis_;
    const Frame& frame_;
};

constexpr const char* kDot = "M-4.5 0a4.5 4.5 0 1 0 9 0a4.5 4.5 0 1 0 -9 0z";
constexpr const char* kCross = "M-4.5 -4.5L4.5 4.5M-4.5 4.5L4.5 -4.5";
constexpr const char* kArrowLeft = "M3 -5L-5 0L3 5z";
constexpr const char* kArrowRight = "M-3 -5L5 0L-3 5z";

std::string sentence(const Measurement& measurement)
{
    const std::string missed = miss(measurement);
    return fmt::format("{}: {}, expected {}{}", measurement.name, withUnit(toText(measurement.value), measurement.unit),
                       toText(measurement.limits, measurement.unit), missed.empty() ? "" : "; " + missed);
}

}  // namespace

bool isDrawn(const Measurement& measurement)
{
    return axisOf(measurement).has_value();
}

void addLimitChart(Node parent, const Measurement& measurement, bool large)
{
    const auto axis = axisOf(measurement);
    if (!axis) {
        return;
    }
    const double value = std::get<double>(measurement.value);
    const Frame frame = large ? Frame{340, 44, 48, 22} : Frame{160, 16, 8, 8};
    Node svg = add(parent, "svg", large ? "chart large" : "chart");
    set(svg, "viewBox", fmt::format("0 0 {} {}", frame.width, frame.height));
    set(svg, "role", "img");
    set(svg, "aria-label", sentence(measurement));

    Drawing drawing(svg, *axis, frame);
    drawing.rect(drawing.x(axis->from), drawing.x(axis->to), 2, "axis");
    const double low = drawing.x(axis->minimum.value_or(axis->from));
    const double high = drawing.x(axis->maximum.value_or(axis->to));
    drawing.rect(low, high, large ? 14 : 10, "band");
    if (axis->minimum) {
        drawing.rect(low - 1, low + 1, large ? 18 : 14, "limit");
    }
    if (axis->maximum) {
        drawing.rect(high - 1, high + 1, large ? 18 : 14, "limit");
    }
    const double at = drawing.x(value);
    const bool left = value < axis->from;
    const bool right = value > axis->to;
    const char* shape = left ? kArrowLeft : right ? kArrowRight : measurement.passed ? kDot : kCross;
    drawing.marker(at, shape,
                   fmt::format("{} {}", left || right || measurement.passed ? "dot" : "cross",
                               measurement.passed ? "pass" : "fail"));
    if (!large) {
        return;
    }
    drawing.label(at, 10, "middle", toText(value), "got");
    const bool single = axis->minimum && axis->maximum && *axis->minimum == *axis->maximum;
    if (axis->minimum) {
        drawing.label(low + (single ? 0 : 4), 42, single ? "middle" : "end", toText(*axis->minimum), "bound");
    }
    if (axis->maximum && !single) {
        drawing.label(high - 4, 42, "start", toText(*axis->maximum), "bound");
    }
}

}  // namespace station::record
