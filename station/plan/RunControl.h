#pragma once

#include <mutex>
#include <optional>

#include "station/Interrupt.h"
#include "station/plan/Plan.h"

namespace station::plan {

/// How a user ends a run: the first request aborts what runs, and the teardown follows; the second ends the teardown
/// as well. All functions may be called from any thread.
class RunControl
{
public:
    void request();

    /// @returns whether the user wanted an end.
    bool requested() const;

    /// What the waits of the run end on.
    Interrupt& interrupt() { return interrupt_; }

    /// From here on a first request is noted only.
    /// @returns false when the user has asked twice already: no teardown then.
    bool beginTeardown();

    /// @returns whether the user asked for the end of the teardown.
    bool teardownRefused() const;

private:
    Interrupt interrupt_;
    mutable std::mutex mutex_;
    int requests_ = 0;        // guarded by mutex_
    bool tearsDown_ = false;  // guarded by mutex_
};

}  // namespace station::plan
