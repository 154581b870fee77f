#pragma once

#include <vector>

#include "platform/bench/CallRecord.h"
#include "platform/bench/EventQueue.h"
#include "platform/bench/State.h"

namespace bench {

/// What every fake uses; not owned, outlives the fakes.
struct FakeContext {
    State& state;        ///< queries read it, actions change it
    CallRecord& calls;   ///< records actions
    EventQueue& events;  ///< the listener thread
};

/// A fake of `Service`.
template <class Service>
class Fake : public Service
{
public:
    explicit Fake(const FakeContext& context) : context_(context) {}

protected:
    State& state() const { return context_.state; }

    /// Records an action of the service.
    void record(const char* service, const char* op, nlohmann::json::array_t args = {}) const
    {
        context_.calls.add(service, op, std::move(args));
    }

    const FakeContext context_;
};

/// Calls `tell` with every listener of a service, except those that are removed meanwhile. The registry stays locked
/// while the listeners run, as IKYRListener promises: a removed listener is not running.
template <class Registry, class Tell>
void tellListeners(Registry& registry, Tell tell)
{
    struct Lock {
        explicit Lock(Registry& locked) : registry(locked) { registry.LockListener(); }
        ~Lock() { registry.UnlockListener(); }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;
        Registry& registry;
    } const lock(registry);

    const auto& listeners = *registry.GetListeners();
    for (auto* const listener : std::vector(listeners.begin(), listeners.end())) {
        if (listeners.contains(listener)) {
            tell(*listener);
        }
    }
}

}  // namespace bench
