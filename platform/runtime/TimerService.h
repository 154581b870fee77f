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

/// The platform's timers: one thread on which everything expires, one expiry at a time, in the order of the times that
/// were set, and of the setting where these are equal. Any thread may call any operation, expiring ones included,
/// unless told otherwise.
class TimerService
{
public:
    enum class Clock {
        kSteady,
        kManual,  ///< stands still but for advance()
    };
    using Id = std::uint64_t;
    using Action = std::function<void()>;

    explicit TimerService(Clock clock = Clock::kSteady);

    /// Forgets what has not expired and waits for an expiry that is under way. Not on the timer thread.
    ~TimerService();
    TimerService(const TimerService&) = delete;
    TimerService& operator=(const TimerService&) = delete;

    /// @returns the service on which the process's timers run: its own, which stays to the end, or the one that was
    /// set.
    static TimerService& instance();

    /// Has timers that are made from now on run on `service`; not owned, null: the process's own.
    static void setInstance(TimerService* service);

    /// Runs `action` once, on the timer thread, after `delay`; a negative one counts as none.
    /// @param owner names a group for cancelAllOf(); null for none
    Id after(std::chrono::milliseconds delay, Action action, const void* owner = nullptr);

    /// Runs `action` again and again until it is cancelled. Expiries that were missed are not made up for.
    /// @param period at least a millisecond; less counts as one
    Id every(std::chrono::milliseconds period, Action action, const void* owner = nullptr);

    /// Cancels a timer; nothing when there is none. An expiry that has begun goes on.
    void cancel(Id id);

    /// Cancels all timers of an owner (not null) and waits until none of them is running, unless on the timer thread
    /// itself.
    void cancelAllOf(const void* owner);

    /// @returns whether the timer will still expire. One that runs once does not any more when its action begins.
    bool isPending(Id id) const;

    /// Lets time pass on the manual clock: what falls due runs, in order, what it sets for that time included. Returns
    /// after it has run. Not on the timer thread.
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
    std::condition_variable changed_;     // a timer, the target or the end
    std::condition_variable settled_;     // an expiry has ended, or the manual clock has arrived
    Timers timers_;                       // guarded by mutex_
    Id lastId_ = 0;                       // guarded by mutex_
    const void* runningOwner_ = nullptr;  // guarded by mutex_
    TimePoint manualNow_{};               // guarded by mutex_
    TimePoint manualTarget_{};            // where advance() wants it; guarded by mutex_
    TimePoint settledUpTo_{};             // nothing that was due until then is left, or running; guarded by mutex_
    bool ending_ = false;                 // guarded by mutex_
    std::thread thread_;                  // runs from the first timer on; last: it uses all of the above
};

}  // namespace runtime
