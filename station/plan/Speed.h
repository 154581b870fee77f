#pragma once

#include <cstddef>

#include "station/plan/Plan.h"
#include "station/record/RunRecord.h"

namespace station::plan {

/// How fast a run was.
struct Speed {
    /// From the run's begin to its end.
    Duration total{0};
    /// What its frames take on the line at the port's rate.
    Duration wire{0};
    /// What the station adds to a step: from its begin to the next one's, less the time between the command's last byte
    /// and the answer's. The median over the steps that sent something and were answered as they should be.
    Duration addedPerStep{0};
    std::size_t steps = 0;
};

Speed speedOf(const record::Run& run);

}  // namespace station::plan
