#include "programs/station/EventView.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string_view>
#include <vector>

#include "programs/Cli.h"
#include "programs/station/FrameJson.h"
#include "programs/station/Screen.h"
#include "programs/station/Tool.h"
#include "protocol/Text.h"
#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/HexBytes.h"
#include "station/ClockText.h"
#include "station/FrameScanner.h"
#include "station/monitor/Changes.h"
#include "station/trace/Attribution.h"
#include "station/trace/Describe.h"

namespace programs::station_tool {

namespace {

using nlohmann::ordered_json;
using station::Changes;
using station::TraceEvent;
using Kind = TraceEvent::Kind;
namespace catalogue = protocol::catalogue;

/// @returns "14:03:27.123456" on the station's clock.
std::string clockTime(std::chrono::system_clock::time_point time)
{
    return station::formatLocal(time, "%H:%M:%S") + station::fractionOfSecond(time, 6);
}

bool isGoodFrame(const TraceEvent& event)
{
    return event.kind == Kind::kSent || event.kind == Kind::kReceived;
}

/// @returns the name of the command or notice, empty if unknown.
std::string nameOf(const catalogue::Decoded& decoded)
{
    const auto groups = catalogue::groups();
    return decoded.command != nullptr  ? fullKey(groups, *decoded.command)
           : decoded.notice != nullptr ? fullKey(groups, *decoded.notice)
                                       : std::string();
}

/// @returns the frame's code and parameters, `82 01 [24 <FE>]`, with the changed bytes marked.
std::string markedText(const Changes::Row& row, std::string_view before, std::string_view after)
{
    std::string text = station::frameText(row.event);
    const std::size_t first = text.find('[') + 1;
    for (auto each = row.changed.rbegin(); each != row.changed.rend(); ++each) {
        constexpr std::size_t kDigits = 2;
        const std::size_t byte = first + *each * (kDigits + 1);
        text.insert(byte + kDigits, after).insert(byte, before);
    }
    return text;
}

/// Prints events as they happen, each at once.
class EventLines : public EventView
{
public:
    EventLines(station::EventFilter filter, EventStyle style)
        : filter_(std::move(filter)), style_(style), colour_(!style.json && colourWanted())
    {
    }

    void on(const TraceEvent& event) override
    {
        const auto decoded = attribution_.on(event).decoded;
        if (!filter_.passes(event, decoded)) {
            return;
        }
        const Changes::Row* row = nullptr;
        if (style_.changes && isGoodFrame(event)) {
            row = &changes_.on(event, nameOf(decoded), {});
            if (!row->fresh) {
                return;
            }
        }
        style_.json ? printObject(event, decoded, row) : printLine(event, decoded, row);
        std::fflush(stdout);
    }

private:
    void printLine(const TraceEvent& event, const catalogue::Decoded& decoded, const Changes::Row* row) const
    {
        std::string line = clockTime(event.at) + "  ";
        std::string direction = name(event.kind);
        direction.resize(8, ' ');
        const char* colour = event.kind == Kind::kSent ? "\x1B[36m" : event.kind == Kind::kReceived ? "" : "\x1B[31m";
        line += colour_ && *colour != '\0' ? colour + direction + "\x1B[0m" : direction;
        line += "  " + describe(attribution_.groups(), event, decoded);
        if (row != nullptr) {
            line += fmt::format("  | {}  {} × {:.1f}/s", markedText(*row, "<", ">"), row->count, row->rate(event.at));
        }
        if (const auto bytes = station::wireBytes(event); style_.hex && !bytes.empty()) {
            line += "  | " + catalogue::formatHexBytes(bytes);
        }
        std::puts(line.c_str());
    }

    void printObject(const TraceEvent& event, const catalogue::Decoded& decoded, const Changes::Row* row) const
    {
        ordered_json object{
            {"type", isGoodFrame(event) ? "frame" : name(event.kind)},
            {"time", station::isoUtc(event.at, 6)},
            {"time_ns", std::chrono::duration_cast<std::chrono::nanoseconds>(event.at.time_since_epoch()).count()}};
        if (!hasFrame(event.kind)) {
            object["text"] = describe(attribution_.groups(), event, decoded);
        } else {
            object["direction"] = event.kind == Kind::kSent ? "sent" : "received";
            object["from"] = event.kind == Kind::kSent ? "station" : "unit";
            object.update(frameJson(attribution_.groups(), decoded, event.frame));
            if (event.masked) {
                object["masked"] = true;
            }
        }
        if (const auto bytes = station::wireBytes(event); style_.hex && !bytes.empty()) {
            object["bytes"] = catalogue::formatHexBytes(bytes);
        }
        if (row != nullptr) {
            object["changed"] = row->changed;
            object["count"] = row->count;
            object["per_second"] = row->rate(event.at);
        }
        printJson(std::move(object));
    }

    station::Attribution attribution_{catalogue::groups()};
    station::EventFilter filter_;
    EventStyle style_;
    bool colour_;
    Changes changes_;
};

/// Shows the last frame of each command, in place.
class ChangesOnTerminal : public EventView
{
public:
    explicit ChangesOnTerminal(station::EventFilter filter) : filter_(std::move(filter)), colour_(colourWanted()) {}

    void on(const TraceEvent& event) override
    {
        const auto decoded = attribution_.on(event).decoded;
        if (!filter_.passes(event, decoded)) {
            return;
        }
        last_ = event.at;
        const std::string text = describe(attribution_.groups(), event, decoded);
        if (isGoodFrame(event)) {
            ++frames_;
            changes_.on(event, nameOf(decoded), text);
        } else if (hasFrame(event.kind)) {
            ++corrupt_;
        } else {
            // While the device is away, nothing ticks.
            line_ = fmt::format("  {} {} {}", clockTime(event.at), name(event.kind), text);
            draw(event.at);
        }
    }

    void tick() override
    {
        constexpr auto kAtMostEvery = std::chrono::milliseconds(100);
        if (const auto now = std::chrono::steady_clock::now(); now >= drawn_ + kAtMostEvery) {
            drawn_ = now;
            draw(std::chrono::system_clock::now());
        }
    }

    void finish() override { draw(last_); }

    void say(const std::string& line) override
    {
        print(block_.redraw({}, {}));
        EventView::say(line);
    }

private:
    void draw(Changes::Time now)
    {
        std::vector<std::string> lines{
            fmt::format("{}, {} corrupt{}", protocol::plural(frames_, "frame"), corrupt_, line_),
            "RATE/s   COUNT  FRAME"};
        std::vector<const Changes::Row*> rows;
        for (const auto& [key, row] : changes_.rows()) {
            rows.push_back(&row);
        }
        const std::size_t room = std::max(ScreenBlock::room(), lines.size()) - lines.size();
        const std::size_t hidden = rows.size() > room ? rows.size() - room : 0;
        if (hidden > 0) {
            lines.front() += fmt::format("  ({} more commands than lines)", hidden);
            std::vector<Changes::Time> times;
            std::ranges::transform(rows, std::back_inserter(times), [](const auto* row) { return row->event.at; });
            std::ranges::nth_element(times, times.begin() + static_cast<std::ptrdiff_t>(hidden));
            std::erase_if(rows, [oldest = times[hidden]](const auto* row) { return row->event.at < oldest; });
        }
        for (const Changes::Row* row : rows) {
            lines.push_back(lineOf(*row, now));
        }
        print(block_.redraw({}, lines));
    }

    std::string lineOf(const Changes::Row& row, Changes::Time now) const
    {
        constexpr auto kMarked = std::chrono::seconds(3);
        const std::string frame = now < row.changedAt + kMarked
                                      ? markedText(row, colour_ ? "\x1B[7m" : "<", colour_ ? "\x1B[27m" : ">")
                                      : station::frameText(row.event);
        return fmt::format("{:6.1f} {:7}  {} {}  {}", row.rate(now), row.count, arrow(row.event.kind), frame,
                           row.meaning);
    }

    static void print(const std::string& text)
    {
        std::fputs(text.c_str(), stdout);
        std::fflush(stdout);
    }

    station::Attribution attribution_{catalogue::groups()};
    station::EventFilter filter_;
    const bool colour_;
    Changes changes_;
    ScreenBlock block_;
    std::size_t frames_ = 0;
    std::size_t corrupt_ = 0;
    /// What happened to the device last.
    std::string line_;
    Changes::Time last_;
    std::chrono::steady_clock::time_point drawn_;
};

}  // namespace

void EventView::say(const std::string& line)
{
    complain(kProgram, line);
}

std::unique_ptr<EventView> makeEventView(station::EventFilter filter, EventStyle style)
{
    if (style.changes && !style.json && !isDumbTerminal() && isatty(STDOUT_FILENO) == 1) {
        return std::make_unique<ChangesOnTerminal>(std::move(filter));
    }
    return std::make_unique<EventLines>(std::move(filter), style);
}

}  // namespace programs::station_tool
