#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "station/Interrupt.h"
#include "station/plan/Plan.h"

namespace station::plan {

/// Ends what waits on an interrupt when a while has passed, unless this object goes first.
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
