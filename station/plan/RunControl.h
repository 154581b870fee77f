#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "station/Interrupt.h"
#include "station/plan/Plan.h"

namespace station::plan {

/// The user's requests to end a run: the first ends the main part, and the teardown follows; the second ends the
/// teardown as well. All functions may be called from any thread.
class RunControl
{
public:
    void request();

    /// @returns whether the user has asked for the end of the run.
    bool requested() const;

    /// Ends the waits of the run.
    Interrupt& interrupt() { return interrupt_; }

    /// After this call a first request is only noted.
    /// @returns false if the user has asked twice already, so there is no teardown.
    bool beginTeardown();

    /// @returns whether the user asked for the end of the teardown.
    bool teardownRefused() const;

private:
    Interrupt interrupt_;
    mutable std::mutex mutex_;
    int requests_ = 0;        // guarded by mutex_
    bool tearsDown_ = false;  // guarded by mutex_
};

/// Requests an interrupt when its time has passed, unless this object is destroyed first.
class TimeLimit
{
public:
    TimeLimit(Interrupt& interrupt, Duration limit)
        : thread_([this, &interrupt, limit](const std::stop_token& stop) {
            std::unique_lock lock(mutex_);
            if (!ended_.wait_for(lock, stop, limit, [] { return false; }) && !stop.stop_requested()) {
                over_ = true;
                interrupt.request();
            }
        })
    {
    }

    bool over() const { return over_; }

private:
    std::mutex mutex_;
    std::condition_variable_any ended_;
    std::atomic<bool> over_ = false;
    std::jthread thread_;
};

}  // namespace station::plan
