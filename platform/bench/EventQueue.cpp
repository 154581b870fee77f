#include "platform/bench/EventQueue.h"

#include "platform/runtime/Report.h"

namespace bench {

EventQueue::EventQueue() : thread_([this] { run(); }), listener_(thread_.get_id()) {}

EventQueue::~EventQueue()
{
    stop();
}

bool EventQueue::post(std::function<void()> event)
{
    {
        const std::lock_guard lock(mutex_);
        if (stopped_) {
            return false;
        }
        events_.push_back(std::move(event));
        ++posted_;
    }
    changed_.notify_all();
    return true;
}

void EventQueue::drain()
{
    if (std::this_thread::get_id() == listener_) {
        return;
    }
    std::unique_lock lock(mutex_);
    const std::uint64_t last = posted_;
    changed_.wait(lock, [&] { return done_ >= last || stopped_; });
}

void EventQueue::stop()
{
    std::deque<std::function<void()>> dropped;
    {
        const std::lock_guard lock(mutex_);
        stopped_ = true;
        dropped.swap(events_);
    }
    changed_.notify_all();
    if (thread_.joinable()) {
        thread_.join();
    }
    // `dropped` is destroyed without the lock: the destructors of events may call back.
}

void EventQueue::run()
{
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return stopped_ || !events_.empty(); });
        if (stopped_) {
            return;
        }
        {
            const std::function<void()> event = std::move(events_.front());
            events_.pop_front();
            lock.unlock();
            runtime::runGuarded("a listener threw", event);
        }
        lock.lock();
        ++done_;
        changed_.notify_all();
    }
}

}  // namespace bench
