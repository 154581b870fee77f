#include <cstdio>
#include <deque>
#include <mutex>

#include "programs/station/plan/RunView.h"
#include "station/record/ValueText.h"

namespace programs::station_tool {

namespace {

class LineView : public RunView
{
public:
    LineView(bool labelled, bool quiet, bool verbose)
        : labelled_(labelled), quiet_(quiet), verbose_(verbose), colour_(colourWanted())
    {
    }

    station::plan::Observer& add(const std::string& port) override
    {
        return observers_.emplace_back(*this, labelled_ ? port : "");
    }

    void finish(std::span<const station::plan::UnitResult> units) override
    {
        for (const station::plan::UnitResult& unit : units) {
            print(station::plan::summary(unit, colour_, verbose_));
        }
    }

private:
    class UnitObserver : public station::plan::Observer
    {
    public:
        UnitObserver(LineView& view, const std::string& label) : view_(view), label_(label), lines_(label, view.colour_)
        {
        }

        void onAttempt(const station::plan::StepPlace& place, const station::plan::Step& step,
                       std::size_t attempt) override
        {
            // The operator may have to act at the unit, such as press a key.
            if (!view_.quiet_ && attempt == 1 && step.kind() == "wait") {
                view_.print((label_.empty() ? "" : "[" + station::record::printable(label_) + "] ") + "waiting for " +
                            station::plan::placeText(place, step.name) + "\n");
            }
        }

        void onStepEnded(const station::plan::StepPlace& place, const station::record::Step& step) override
        {
            if (!view_.quiet_) {
                view_.print(lines_.ended(place, step) + "\n");
            }
        }

        void onStepAmended(const station::plan::StepPlace& place, const station::record::Step& step) override
        {
            if (!view_.quiet_) {
                view_.print(lines_.amended(place, step) + "\n");
            }
        }

    private:
        LineView& view_;
        const std::string label_;
        station::plan::StepLines lines_;
    };

    void print(const std::string& text)
    {
        const std::lock_guard lock(mutex_);
        std::fputs(text.c_str(), stdout);
        std::fflush(stdout);
    }

    const bool labelled_;
    const bool quiet_;
    const bool verbose_;
    const bool colour_;
    std::mutex mutex_;  // guards standard output
    std::deque<UnitObserver> observers_;
};

}  // namespace

std::unique_ptr<RunView> makeLineView(bool labelled, bool quiet, bool verbose)
{
    return std::make_unique<LineView>(labelled, quiet, verbose);
}

}  // namespace programs::station_tool
