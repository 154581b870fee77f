#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace bench {

/// The middleware's listener thread: runs what is posted, first come, first served.
class EventQueue
{
public:
    EventQueue();

    /// As stop().
    ~EventQueue();
    EventQueue(const EventQueue&) = delete;
    EventQueue& operator=(const EventQueue&) = delete;

    /// Has `event` run on the listener thread; returns at once. Any thread. What it throws ends it and shows on
    /// standard error.
    /// @returns false when the queue has been stopped: `event` is dropped.
    bool post(std::function<void()> event);

    /// Returns after everything that was posted before has run, or the queue has been stopped. On the listener thread
    /// itself, which cannot wait for itself, it returns at once.
    void drain();

    /// Ends the thread after the event that is running; what is left is dropped. Not on the listener thread. May be
    /// called more than once.
    void stop();

private:
    void run();

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> events_;  // guarded by mutex_
    std::uint64_t posted_ = 0;                  // guarded by mutex_
    std::uint64_t done_ = 0;                    // guarded by mutex_
    bool stopped_ = false;                      // guarded by mutex_
    std::thread thread_;                        // uses what stands above
    const std::thread::id listener_;            // stays when thread_ has been joined
};

}  // namespace bench
