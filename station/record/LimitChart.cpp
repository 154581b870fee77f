#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>

#include "station/record/Html.h"
#include "station/record/RunStatistics.h"

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
        set(box(left, right, frame_.middle - height / 2, height, styleClass), "rx", "1.5");
    }

    Node box(double left, double right, double top, double height, const char* styleClass)
    {
        Node node = add(svg_, "rect", styleClass);
        number(node, "x", left);
        number(node, "y", top);
        number(node, "width", std::max(right - left, 2.0));
        number(node, "height", height);
        return node;
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

/// The axis of many numbers.
Axis axisOf(const MeasurementFigures& figures)
{
    const Statistic& numbers = figures.series.numbers;
    const Limits& limits = figures.key.limits;
    Axis axis{numbers.minimum, numbers.maximum, limits.minimum, limits.maximum};
    if (limits.equals) {
        axis.minimum = axis.maximum = std::get<double>(*limits.equals);
    }
    const double low = axis.minimum.value_or(axis.maximum.value_or(axis.from));
    const double high = axis.maximum.value_or(axis.minimum.value_or(axis.to));
    if (high > low) {
        axis.from = std::max(axis.from, low - kFarthest * (high - low));
        axis.to = std::min(axis.to, high + kFarthest * (high - low));
    }
    axis.from = std::min(axis.from, low);
    axis.to = std::max(axis.to, high);
    const double margin = axis.to > axis.from ? (axis.to - axis.from) / 20 : std::max(std::abs(axis.from) * 0.1, 1.0);
    axis.from -= margin;
    axis.to += margin;
    return axis;
}

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

void addHistogram(Node parent, const MeasurementFigures& figures)
{
    constexpr double kBars = 40;
    constexpr Frame kFrame{340, 120, 12, 50};
    constexpr double kTop = 14;
    constexpr double kBottom = 96;
    const Axis axis = axisOf(figures);
    const auto bins = figures.series.histogram.bins((axis.to - axis.from) / kBars);
    if (bins.empty() || !std::isfinite(axis.to - axis.from)) {
        return;
    }
    std::uint64_t highest = 0;
    std::uint64_t beyond = 0;
    for (const Histogram::Bin& bin : bins) {
        const bool shown = bin.to > axis.from && bin.from < axis.to;
        highest = shown ? std::max(highest, bin.count) : highest;
        beyond += shown ? 0 : bin.count;
    }
    Node svg = add(parent, "svg", "chart large");
    set(svg, "viewBox", fmt::format("0 0 {} {}", kFrame.width, kFrame.height));
    set(svg, "role", "img");
    const std::string limits = toText(figures.key.limits, figures.key.unit);
    set(svg, "aria-label",
        fmt::format("Histogram of {}: {} to {}{}", figures.key.name, shortText(figures.series.numbers.minimum),
                    withUnit(shortText(figures.series.numbers.maximum), figures.key.unit),
                    limits.empty() ? "" : ", expected " + limits));

    Drawing drawing(svg, axis, kFrame);
    const double low = drawing.x(axis.minimum.value_or(axis.from));
    const double high = drawing.x(axis.maximum.value_or(axis.to));
    if (axis.minimum || axis.maximum) {
        drawing.box(low, high, kTop, kBottom - kTop, "band");
    }
    for (const Histogram::Bin& bin : bins) {
        if (bin.to <= axis.from || bin.from >= axis.to) {
            continue;
        }
        // A narrow bin is a line, which would move to the right in full.
        const double left = drawing.x(bin.from) + 0.25;
        const double height =
            std::max((kBottom - kTop - 4) * static_cast<double>(bin.count) / static_cast<double>(highest), 1.0);
        const bool outside = (axis.minimum && bin.to <= *axis.minimum && bin.from < *axis.minimum) ||
                             (axis.maximum && bin.from > *axis.maximum);
        Node bar =
            drawing.box(left, drawing.x(bin.to) - 0.25, kBottom - height, height, outside ? "bar fail" : "bar pass");
        html::addText(bar, "title", fmt::format("{} to {}: {}", shortText(bin.from), shortText(bin.to), bin.count));
    }
    drawing.box(drawing.x(axis.from), drawing.x(axis.to), kBottom, 1.5, "axis");
    for (const auto& limit : {axis.minimum, axis.maximum}) {
        if (limit) {
            drawing.box(drawing.x(*limit) - 1, drawing.x(*limit) + 1, kTop - 4, kBottom - kTop + 8, "limit");
        }
    }
    const bool single = axis.minimum == axis.maximum;
    if (axis.minimum) {
        drawing.label(std::max(low, 20.0), 114, "middle", shortText(*axis.minimum), "bound");
    }
    if (axis.maximum && !single) {
        drawing.label(std::min(high, kFrame.width - 20), 114, "middle", shortText(*axis.maximum), "bound");
    }
    if (beyond > 0) {
        drawing.label(kFrame.width - 12, 9, "end", fmt::format("{} more beyond the edge", beyond), "bound");
    }
}

}  // namespace station::record
