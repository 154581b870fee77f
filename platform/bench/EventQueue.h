#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace bench {

/// The listener thread of the middleware: runs posted events in their order.
class EventQueue
{
public:
    EventQueue();

    /// As stop().
    ~EventQueue();
    EventQueue(const EventQueue&) = delete;
    EventQueue& operator=(const EventQueue&) = delete;

    /// Runs `event` on the listener thread; returns at once. Any thread. An exception ends the event and is reported on
    /// standard error.
    /// @returns false if the queue is stopped: `event` is dropped.
    bool post(std::function<void()> event);

    /// Waits until all events posted before have run, or the queue is stopped. On the listener thread it returns at
    /// once.
    void drain();

    /// Ends the thread after the running event and drops the rest. Not on the listener thread. May be called more than
    /// once.
    void stop();

private:
    void run();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> events_;  // guarded by mutex_
    std::uint64_t posted_ = 0;                  // guarded by mutex_
    std::uint64_t done_ = 0;                    // guarded by mutex_
    bool stopped_ = false;                      // guarded by mutex_
    std::thread thread_;                        // uses the members above
    const std::thread::id listener_;            // also known after thread_ was joined
};

}  // namespace bench
