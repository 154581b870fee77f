#include <cstdio>
#include <deque>
#include <mutex>

#include "programs/station/plan/RunView.h"
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
    station::plan::Observer& add(const std::string& port) override { return observers_.emplace_back(*this, port); }

    void finish(std::span<const station::plan::UnitResult> units) override
    {
        for (const station::plan::UnitResult& unit : units) {
            const auto& speed = unit.result.speed;
            Json json = station::record::endedEvent(unit.result.run);
            json["verdict"] = station::plan::headlineText(unit);
            json["folder"] = unit.folder;
            json["record_error"] = unit.recordError;
            json["wire_ms"] = milliseconds(speed.wire);
            json["added_per_step_ms"] = milliseconds(speed.addedPerStep);
            json["exit"] = static_cast<int>(station::plan::exitStatusOf(unit));
            print(std::move(json));
        }
    }

private:
    class UnitObserver : public station::plan::Observer
    {
    public:
        UnitObserver(JsonView& view, std::string port) : view_(view), port_(std::move(port)) {}

        void onStarted(station::record::Run& run) override { view_.print(station::record::startedEvent(run)); }

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

    std::mutex mutex_;  // guards standard output
    std::deque<UnitObserver> observers_;
};

}  // namespace

std::unique_ptr<RunView> makeJsonView()
{
    return std::make_unique<JsonView>();
}

}  // namespace programs::station_tool
