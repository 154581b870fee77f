#include "platform/runtime/TimerService.h"

#include <algorithm>
#include <atomic>

#include "platform/runtime/Report.h"

namespace runtime {
namespace {

using std::chrono::milliseconds;

std::atomic<TimerService*> theInstance = nullptr;

}  // namespace

TimerService::TimerService(Clock clock) : clock_(clock)
{
    const std::lock_guard lock(mutex_);
    if (clock_ == Clock::kManual) {
        startLocked();  // advance() may be called before there is any timer
    }
}

TimerService::~TimerService()
{
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    changed_.notify_all();
    if (thread_.joinable()) {
        thread_.join();
    }
}

/// With the lock, since the thread compares thread_ with itself.
void TimerService::startLocked()
{
    if (!thread_.joinable()) {
        thread_ = std::thread([this] { run(); });
    }
}

TimerService& TimerService::instance()
{
    if (TimerService* const set = theInstance; set != nullptr) {
        return *set;
    }
    static TimerService* const own = new TimerService;  // in use until the process ends
    return *own;
}

void TimerService::setInstance(TimerService* service)
{
    theInstance = service;
}

TimerService::Id TimerService::after(milliseconds delay, Action action, const void* owner)
{
    return add(delay, milliseconds(0), std::move(action), owner);
}

TimerService::Id TimerService::every(milliseconds period, Action action, const void* owner)
{
    const milliseconds atLeast = std::max(period, milliseconds(1));
    return add(atLeast, atLeast, std::move(action), owner);
}

TimerService::Id TimerService::add(milliseconds delay, milliseconds period, Action action, const void* owner)
{
    auto shared = std::make_shared<const Action>(std::move(action));
    Id id = 0;
    {
        const std::lock_guard lock(mutex_);
        startLocked();
        id = ++lastId_;
        timers_[id] = {nowLocked() + std::max(delay, milliseconds(0)), period, std::move(shared), owner};
    }
    changed_.notify_all();
    return id;
}

void TimerService::cancel(Id id)
{
    Timers::node_type cancelled;  // its action is destroyed after the lock is released
    const std::lock_guard lock(mutex_);
    cancelled = timers_.extract(id);
}

void TimerService::cancelAllOf(const void* owner)
{
    std::unique_lock lock(mutex_);
    std::erase_if(timers_, [owner](const auto& entry) { return entry.second.owner == owner; });
    if (!onTimerThread()) {
        settled_.wait(lock, [&] { return runningOwner_ != owner; });
    }
}

bool TimerService::isPending(Id id) const
{
    const std::lock_guard lock(mutex_);
    return timers_.contains(id);
}

void TimerService::advance(milliseconds time)
{
    std::unique_lock lock(mutex_);
    const TimePoint target = manualTarget_ += time;
    changed_.notify_all();
    settled_.wait(lock, [&] { return settledUpTo_ >= target; });
}

void TimerService::run()
{
    std::unique_lock lock(mutex_);
    while (!ending_) {
        const auto next = nextLocked();
        const TimePoint limit = clock_ == Clock::kManual ? manualTarget_ : nowLocked();
        if (next != timers_.end() && next->second.due <= limit) {
            expireLocked(next, lock);
        } else {
            waitLocked(next, lock);
        }
    }
}

TimerService::TimePoint TimerService::nowLocked() const
{
    return clock_ == Clock::kManual ? manualNow_ : std::chrono::steady_clock::now();
}

TimerService::Timers::iterator TimerService::nextLocked()
{
    return std::ranges::min_element(timers_, {}, [](const auto& entry) { return entry.second.due; });
}

void TimerService::expireLocked(Timers::iterator next, std::unique_lock<std::mutex>& lock)
{
    manualNow_ = std::max(manualNow_, next->second.due);
    auto action = next->second.action;
    runningOwner_ = next->second.owner;
    if (next->second.period == milliseconds(0)) {
        timers_.erase(next);
    } else {
        next->second.due = std::max(next->second.due + next->second.period, nowLocked());
    }

    lock.unlock();
    runGuarded("a timer's action has failed", *action);
    action.reset();
    lock.lock();
    runningOwner_ = nullptr;
    settled_.notify_all();
}

void TimerService::waitLocked(Timers::iterator next, std::unique_lock<std::mutex>& lock)
{
    if (clock_ == Clock::kManual && settledUpTo_ < manualTarget_) {
        manualNow_ = settledUpTo_ = manualTarget_;
        settled_.notify_all();
    }
    if (clock_ == Clock::kManual || next == timers_.end()) {
        changed_.wait(lock);
        return;
    }
    const TimePoint due = next->second.due;  // a copy: another thread may remove the entry meanwhile
    changed_.wait_until(lock, due);
}

}  // namespace runtime
