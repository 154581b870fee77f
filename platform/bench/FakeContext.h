#pragma once

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

}  // namespace bench
