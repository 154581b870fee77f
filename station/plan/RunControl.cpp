#include "station/plan/RunControl.h"

namespace station::plan {

void RunControl::request()
{
    const std::lock_guard lock(mutex_);
    ++requests_;
    if (!tearsDown_ || requests_ > 1) {
        interrupt_.request();
    }
}

bool RunControl::requested() const
{
    const std::lock_guard lock(mutex_);
    return requests_ > 0;
}

bool RunControl::beginTeardown()
{
    const std::lock_guard lock(mutex_);
    tearsDown_ = true;
    if (requests_ > 1) {
        return false;
    }
    interrupt_.clear();
    return true;
}

bool RunControl::teardownRefused() const
{
    const std::lock_guard lock(mutex_);
    return requests_ > 1;
}

}  // namespace station::plan
