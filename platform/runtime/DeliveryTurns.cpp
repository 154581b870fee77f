#include "platform/runtime/DeliveryTurns.h"

#include <chrono>

namespace runtime {

DeliveryTurns& DeliveryTurns::instance()
{
    static DeliveryTurns* const turns = new DeliveryTurns;  // in use until the process ends
    return *turns;
}

void DeliveryTurns::begin()
{
    const std::lock_guard lock(mutex_);
    current_ = ++last_;
}

void DeliveryTurns::end()
{
    {
        const std::lock_guard lock(mutex_);
        current_ = 0;
    }
    ended_.notify_all();
}

std::uint64_t DeliveryTurns::current() const
{
    const std::lock_guard lock(mutex_);
    return current_;
}

void DeliveryTurns::waitForEnd(std::uint64_t turn)
{
    constexpr std::chrono::seconds kMost{3};
    std::unique_lock lock(mutex_);
    if (turn != 0) {
        ended_.wait_for(lock, kMost, [&] { return current_ != turn; });
    }
}

}  // namespace runtime
