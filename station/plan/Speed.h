#pragma once

#include <optional>
#include <vector>

#include "station/plan/Plan.h"
#include "station/record/RunRecord.h"

namespace station::plan {

/// The speed of a run.
struct Speed {
    /// From the start of the run to its end.
    Duration total{0};
    /// Time of its frames on the line, at the rate of the port.
    Duration wire{0};
    /// The time that the station adds to a step: from its start to the next start, less the time between the last byte
    /// of the command and that of the answer. The median of the steps that got the answer they expected.
    Duration addedPerStep{0};
    std::size_t steps = 0;
};

/// Measures the speed of a run, however long.
class SpeedMeter
{
public:
    /// Adds a step of `run` that has ended.
    void add(const record::Run& run, const record::Step& step);

    /// @returns the speed so far, without its total.
    Speed speed() const;

private:
    /// Of these the median is made; of more steps, it takes every second, every fourth and so on.
    static constexpr std::size_t kMost = 10'000;

    /// The last attempt, whose time ends where the next begins.
    struct Last {
        std::chrono::system_clock::time_point started;
        Duration duration{0};
        /// How long the unit took of it.
        Duration unit{0};
    };

    void add(Duration added);

    Duration wire_{0};
    std::optional<Last> last_;
    std::vector<Duration> added_;
    std::size_t steps_ = 0;
    std::size_t every_ = 1;
};

}  // namespace station::plan
