#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <deque>
#include <mutex>
#include <vector>

#include "programs/station/Screen.h"
#include "programs/station/plan/RunView.h"
#include "protocol/catalogue/Catalogue.h"
#include "station/record/Outcome.h"
#include "station/record/ValueText.h"
#include "station/trace/Describe.h"

namespace programs::station_tool {

namespace {

namespace catalogue = protocol::catalogue;
using station::TraceEvent;
using station::record::printable;

constexpr std::size_t kFrames = 3;
/// The lines of one unit.
struct UnitState {
    std::string label;
    std::string step = "connecting";
    std::size_t done = 0;
    station::plan::Tally tally;
    std::deque<std::string> frames;
    station::Attribution attribution{catalogue::groups()};
    std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
};

class LiveView : public RunView
{
public:
    LiveView(const station::plan::Plan& plan, bool labelled, bool verbose)
        : plan_(plan), total_(plan.stepCount()), labelled_(labelled), verbose_(verbose), colour_(colourWanted())
    {
    }

    station::plan::Observer& add(const std::string& port) override
    {
        const std::lock_guard lock(mutex_);
        units_.emplace_back().label = labelled_ ? port : "";
        return observers_.emplace_back(*this, units_.back());
    }

    void tick() override
    {
        draw([this] { return aside_ ? std::string() : composeLocked(true); });
    }

    void aside(bool wanted) override
    {
        draw([this, wanted] {
            aside_ = wanted;
            return composeLocked(!wanted);
        });
    }

    void finish(std::span<const station::plan::UnitResult> units) override
    {
        draw([this, units] {
            std::string text = composeLocked(false);
            for (const station::plan::UnitResult& unit : units) {
                text += station::plan::summary(unit, colour_, verbose_);
            }
            return text;
        });
    }

private:
    /// The thread of the run only stores; the ticks draw.
    class UnitObserver : public station::plan::Observer
    {
    public:
        UnitObserver(LiveView& view, UnitState& state) : view_(view), state_(state), lines_(state.label, view.colour_)
        {
        }

        void onAttempt(const station::plan::StepPlace& place, const station::plan::Step& step,
                       std::size_t attempt) override
        {
            show(fmt::format("{}{}{}", station::plan::placeText(place, step.name),
                             step.what == step.name ? "" : ": " + printable(step.what),
                             attempt > 1 ? fmt::format(", attempt {}", attempt) : ""));
        }

        void onFrame(const TraceEvent& event) override
        {
            const std::lock_guard lock(view_.mutex_);
            state_.frames.push_back(
                fmt::format("  {} {}", arrow(event.kind),
                            printable(describe(catalogue::groups(), event, state_.attribution.on(event).decoded))));
            if (state_.frames.size() > kFrames) {
                state_.frames.pop_front();
            }
        }

        void onStepEnded(const station::plan::StepPlace& place, const station::record::Step& step) override
        {
            const std::lock_guard lock(view_.mutex_);
            state_.done = place.index + 1;
            ++state_.tally[verdictOf(step)];
            view_.lines_.push_back(lines_.ended(place, step));
        }

        void onStepAmended(const station::plan::StepPlace& place, const station::record::Step& step) override
        {
            const std::lock_guard lock(view_.mutex_);
            view_.lines_.push_back(lines_.amended(place, step));
        }

        void onWriting() override { show("writing the reports"); }
        void onEnded(const station::record::Run&) override { show("done"); }

    private:
        void show(std::string step)
        {
            const std::lock_guard lock(view_.mutex_);
            state_.step = std::move(step);
        }

        LiveView& view_;
        UnitState& state_;
        station::plan::StepLines lines_;
    };

    std::vector<std::string> blockLocked(const UnitState& unit) const
    {
        constexpr std::size_t kWidth = 24;
        const std::size_t filled = total_ == 0 ? kWidth : std::min(kWidth, unit.done * kWidth / total_);
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - unit.started).count();
        const std::string counts = station::plan::format(unit.tally);
        std::vector<std::string> lines;
        lines.push_back(fmt::format("{} [{:-<{}}] {}/{}  {:.1f} s{}{}",
                                    unit.label.empty() ? plan_.name : printable(unit.label), std::string(filled, '#'),
                                    kWidth, unit.done, total_, seconds, counts.empty() ? "" : "  ", counts));
        lines.push_back("  " + unit.step);
        lines.insert(lines.end(), unit.frames.begin(), unit.frames.end());
        return lines;
    }

    /// Writes the text that `compose` makes with mutex_ held. A blocked terminal does not delay the runs, which only
    /// take mutex_.
    template <class Compose>
    void draw(Compose compose)
    {
        const std::lock_guard output(output_);
        std::string text;
        {
            const std::lock_guard lock(mutex_);
            text = compose();
        }
        std::fputs(text.c_str(), stdout);
        std::fflush(stdout);
    }

    /// @returns the text that adds the new lines above the block at the bottom and draws the block again.
    std::string composeLocked(bool withBlock)
    {
        std::string above;
        for (const std::string& line : lines_) {
            above += line + "\n";
        }
        lines_.clear();
        std::vector<std::string> block;
        for (const UnitState& unit : units_) {
            if (withBlock) {
                std::ranges::move(blockLocked(unit), std::back_inserter(block));
            }
        }
        return block_.redraw(above, block);
    }

    const station::plan::Plan& plan_;
    const std::size_t total_;
    const bool labelled_;
    const bool verbose_;
    const bool colour_;
    std::mutex output_;  // guards standard output; taken before mutex_
    std::mutex mutex_;
    // Guarded by mutex_:
    std::deque<UnitState> units_;
    std::deque<UnitObserver> observers_;
    std::vector<std::string> lines_;
    ScreenBlock block_;
    bool aside_ = false;
};

}  // namespace

std::unique_ptr<RunView> makeLiveView(const station::plan::Plan& plan, bool labelled, bool verbose)
{
    return std::make_unique<LiveView>(plan, labelled, verbose);
}

}  // namespace programs::station_tool
