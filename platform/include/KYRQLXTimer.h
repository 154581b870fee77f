#pragma once

#include <memory>

/// Unit of an interval.
enum TimerType : int {
    TIMER_MILLISECONDS = 0,
    TIMER_TENTHS_OF_SECOND = 1,
};

enum LoopType : int {
    LOOP_ONCE = 0,
    LOOP_REPEAT = 1,
};

/// Base class of an object with timers. The object identifies its timers by numbers. Each expiry calls
/// OnTimerHandleFunc() on the platform's timer thread, one expiry at a time in the whole process.
/// Any thread may call the other operations, also from within OnTimerHandleFunc().
class KYRQLXTimer
{
public:
    KYRQLXTimer();

    /// Kills the remaining timers and waits for a running expiry, unless it runs on this thread. A derived class that
    /// overrides OnTimerHandleFunc() must kill its timers before.
    virtual ~KYRQLXTimer();
    KYRQLXTimer(const KYRQLXTimer&) = delete;
    KYRQLXTimer& operator=(const KYRQLXTimer&) = delete;

    /// Called when timer `id` expires. A LOOP_ONCE timer is no longer active by then.
    virtual void OnTimerHandleFunc(int id) { static_cast<void>(id); }

    /// Starts timer `id`; restarts it if it is active.
    /// @param interval in units of `type`; values below 1 count as 1.
    /// @returns 1, or 0 for an unknown type or loop.
    int StartNormalTimer(int id, int interval, TimerType type, LoopType loop);

    /// Stops timer `id`, if it is active. Does not interrupt a running expiry.
    void KillNormalTimer(int id);

    /// @returns 1 if timer `id` will still expire, else 0.
    int IsNormalTimerActive(int id);

private:
    struct Impl;
    std::unique_ptr<Impl> m_pImpl;
};
