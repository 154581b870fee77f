#pragma once

#include <memory>

/// What an interval counts.
enum TimerType : int {
    TIMER_MILLISECONDS = 0,
    TIMER_TENTHS_OF_SECOND = 1,
};

enum LoopType : int {
    LOOP_ONCE = 0,
    LOOP_REPEAT = 1,
};

/// Base class of an object with timers. A timer is named by a number of the object's own; every expiry calls
/// OnTimerHandleFunc() on the platform's timer thread, one expiry at a time in the whole process.
/// The other operations may be called from any thread, OnTimerHandleFunc() included.
class KYRQLXTimer
{
public:
    KYRQLXTimer();

    /// Kills the timers that are left and waits for an expiry that is under way (unless it runs on this thread). A
    /// derived class that overrides OnTimerHandleFunc() must have killed its timers by then.
    virtual ~KYRQLXTimer();
    KYRQLXTimer(const KYRQLXTimer&) = delete;
    KYRQLXTimer& operator=(const KYRQLXTimer&) = delete;

    /// Called when timer `id` expires. A timer that fires once is no longer active by then.
    virtual void OnTimerHandleFunc(int id) { static_cast<void>(id); }

    /// Starts timer `id`; one of that id that is active is started anew.
    /// @param interval in units of `type`; 0 and less count as 1.
    /// @returns 1, or 0 for an unknown type or loop.
    int StartNormalTimer(int id, int interval, TimerType type, LoopType loop);

    /// Stops timer `id`; nothing when it is not active. An expiry that has begun goes on.
    void KillNormalTimer(int id);

    /// @returns 1 while timer `id` will still expire, else 0.
    int IsNormalTimerActive(int id);

private:
    struct Impl;
    std::unique_ptr<Impl> m_pImpl;
};
