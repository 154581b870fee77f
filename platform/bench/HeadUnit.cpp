#include "platform/bench/HeadUnit.h"

#include <atomic>

#include "platform/bench/Services.h"

namespace bench {
namespace {

std::atomic<HeadUnit*> theInstalled{nullptr};

}  // namespace

HeadUnit::HeadUnit() : HeadUnit(runtime::TimerService::instance()) {}

HeadUnit::HeadUnit(runtime::TimerService& timers)
    : services_(std::make_unique<Services>(FakeContext{state_, calls_, events_}, timers))
{
}

HeadUnit::~HeadUnit()
{
    HeadUnit* self = this;
    theInstalled.compare_exchange_strong(self, nullptr);
    stop();
}

void HeadUnit::mergeState(const nlohmann::json& patch)
{
    state_.merge(patch);
}

void HeadUnit::install()
{
    theInstalled = this;
}

HeadUnit* HeadUnit::installed()
{
    return theInstalled;
}

void HeadUnit::raise(const std::string& name, const nlohmann::json& arguments, std::function<void()> then)
{
    events_.post([deliver = makeEvent(*services_, name, arguments), finish = std::move(then)] {
        deliver();
        if (finish) {
            finish();
        }
    });
}

void HeadUnit::raiseAndWait(const std::string& name, const nlohmann::json& arguments)
{
    raise(name, arguments);
    events_.drain();
}

int HeadUnit::startModule(int module)
{
    if (const auto result = services_->appManager.startModule(module)) {
        return *result;
    }
    throw EventError(EventError::Kind::kNoStartAction,
                     "module " + std::to_string(module) + ": the service has registered no start action");
}

void HeadUnit::serviceInitialised()
{
    services_->appManager.serviceInitialised();
}

void HeadUnit::stop()
{
    services_->appManager.cancelStarts();
    events_.stop();
}

Services* installedServices()
{
    HeadUnit* const unit = HeadUnit::installed();
    return unit == nullptr ? nullptr : &unit->services();
}

}  // namespace bench
