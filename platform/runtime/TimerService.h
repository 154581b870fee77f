#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

namespace runtime {

/// The timers of the platform. One thread runs all expiries, one at a time, in the order of their times; timers with
/// equal times expire in the order in which they were set. Any thread, including an expiring timer, may call any
/// operation unless its comment says otherwise.
class TimerService
{
public:
    enum class Clock {
        kSteady,
        kManual,  ///< stands still except in advance()
    };
    using Id = std::uint64_t;
    using Action = std::function<void()>;

    explicit TimerService(Clock clock = Clock::kSteady);

    /// Drops the timers that have not expired and waits for a running expiry. Not on the timer thread.
    ~TimerService();
    TimerService(const TimerService&) = delete;
    TimerService& operator=(const TimerService&) = delete;

    /// @returns the service for the timers of the process: its own, which lasts as long as the process, or the one from
    /// setInstance().
    static TimerService& instance();

    /// New timers run on `service` from now on; not owned. Null: the process's own.
    static void setInstance(TimerService* service);

    /// Runs `action` once on the timer thread, after `delay`. A negative delay counts as 0.
    /// @param owner names a group for cancelAllOf(); null for none
    Id after(std::chrono::milliseconds delay, Action action, const void* owner = nullptr);

    /// Runs `action` again and again until the timer is cancelled. Skips missed expiries.
    /// @param period at least a millisecond; less counts as one
    Id every(std::chrono::milliseconds period, Action action, const void* owner = nullptr);

    /// Cancels a timer, if it exists. An expiry that has begun continues.
    void cancel(Id id);

    /// Cancels all timers of an owner (not null) and waits until none of them is running. On the timer thread it does
    /// not wait.
    void cancelAllOf(const void* owner);

    /// @returns whether the timer will still expire. A timer that runs once is no longer pending when its action
    /// begins.
    bool isPending(Id id) const;

    /// Advances the manual clock. Runs the timers that fall due in order, including those that these set, and returns
    /// afterwards. Not on the timer thread.
    void advance(std::chrono::milliseconds time);

private:
    using TimePoint = std::chrono::steady_clock::time_point;

    struct Timer {
        TimePoint due;
        std::chrono::milliseconds period;  // 0: once
        std::shared_ptr<const Action> action;
        const void* owner;
    };
    using Timers = std::map<Id, Timer>;

    Id add(std::chrono::milliseconds delay, std::chrono::milliseconds period, Action action, const void* owner);
    void startLocked();
    void run();
    TimePoint nowLocked() const;
    Timers::iterator nextLocked();
    void expireLocked(Timers::iterator next, std::unique_lock<std::mutex>& lock);
    void waitLocked(Timers::iterator next, std::unique_lock<std::mutex>& lock);
    bool onTimerThread() const { return std::this_thread::get_id() == thread_.get_id(); }

    const Clock clock_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;     // a timer, the target or ending_
    std::condition_variable settled_;     // an expiry has ended, or the manual clock has reached its target
    Timers timers_;                       // guarded by mutex_
    Id lastId_ = 0;                       // guarded by mutex_
    const void* runningOwner_ = nullptr;  // guarded by mutex_
    TimePoint manualNow_{};               // guarded by mutex_
    TimePoint manualTarget_{};            // where advance() wants it; guarded by mutex_
    TimePoint settledUpTo_{};             // all timers due until then have run; guarded by mutex_
    bool ending_ = false;                 // guarded by mutex_
    std::thread thread_;                  // starts with the first timer; last: uses all other members
};

}  // namespace runtime
