#include <cstdio>
#include <deque>
#include <mutex>

#include "programs/station/plan/RunView.h"
#include "station/record/Outcome.h"
#include "station/record/RecordJson.h"
#include "station/trace/Describe.h"

namespace programs::station_tool {

namespace {

using Json = nlohmann::ordered_json;

double milliseconds(station::plan::Duration time)
{
    return std::chrono::duration<double, std::milli>(time).count();
}

class JsonView : public RunView
{
public:
    explicit JsonView(const station::plan::Plan& plan) : plan_(plan) {}

    station::plan::Observer& add(const std::string& port) override { return observers_.emplace_back(*this, port); }

    void finish(std::span<const station::plan::UnitResult> units) override
    {
        for (const station::plan::UnitResult& unit : units) {
            const auto& run = unit.result.run;
            const auto& speed = unit.result.speed;
            const auto headline = station::record::headlineOf(run);
            Json steps = Json::object();
            for (const auto& [verdict, count] : station::record::outcomeOf(run).tally) {
                steps[station::record::name(verdict)] = count;
            }
            print({{"event", "ended"},
                   {"port", run.unit.port},
                   {"serial", run.unit.serial},
                   {"verdict", station::plan::headlineText(unit)},
                   {"reason", headline.reason},
                   {"beside", headline.beside},
                   {"line",
                    {{"losses", run.line.losses},
                     {"reconnects", run.line.reconnects},
                     {"repeated_sends", run.line.repeatedSends},
                     {"corrupt_frames", run.line.corruptFrames},
                     {"garbage_bytes", run.line.garbageBytes}}},
                   {"steps", std::move(steps)},
                   {"folder", unit.folder},
                   {"record_error", unit.recordError},
                   {"time_ms", milliseconds(speed.total)},
                   {"wire_ms", milliseconds(speed.wire)},
                   {"added_per_step_ms", milliseconds(speed.addedPerStep)},
                   {"exit", static_cast<int>(station::plan::exitStatusOf(unit))}});
        }
    }

private:
    class UnitObserver : public station::plan::Observer
    {
    public:
        UnitObserver(JsonView& view, std::string port) : view_(view), port_(std::move(port)) {}

        void onStarted(station::record::Run& run) override
        {
            view_.print({{"event", "started"},
                         {"port", port_},
                         {"id", run.id},
                         {"plan", run.plan.name},
                         {"steps", view_.plan_.stepCount()}});
        }

        void onFrame(const station::TraceEvent& event) override
        {
            if (!hasFrame(event.kind)) {
                view_.print({{"event", name(event.kind)}, {"port", port_}, {"text", event.text}});
            }
        }

        void onStepEnded(const station::plan::StepPlace& place, const station::record::Step& step) override
        {
            view_.print(station::record::stepEvent("step", port_, place, step));
        }

        void onStepAmended(const station::plan::StepPlace& place, const station::record::Step& step) override
        {
            view_.print(station::record::stepEvent("amended", port_, place, step));
        }

    private:
        JsonView& view_;
        const std::string port_;
    };

    void print(Json object)
    {
        const std::lock_guard lock(mutex_);
        printJson(std::move(object));
        std::fflush(stdout);
    }

    const station::plan::Plan& plan_;
    std::mutex mutex_;  // guards standard output
    std::deque<UnitObserver> observers_;
};

}  // namespace

std::unique_ptr<RunView> makeJsonView(const station::plan::Plan& plan)
{
    return std::make_unique<JsonView>(plan);
}

}  // namespace programs::station_tool
