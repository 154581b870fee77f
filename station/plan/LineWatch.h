#pragma once

#include <cstddef>
#include <deque>

#include "station/plan/Surroundings.h"
#include "station/record/RunRecord.h"
#include "station/trace/Attribution.h"
#include "station/trace/Secrets.h"

namespace station::plan {

/// Keeps the events of the line for the record and for the steps. For one thread.
class LineWatch : public TraceSink
{
public:
    LineWatch(record::Run& run, Observer& observer, protocol::catalogue::Groups groups)
        : run_(run), observer_(observer), attribution_(groups), mask_(groups)
    {
    }

    void on(const TraceEvent& event) override;

    /// A frame that came since the last forget().
    struct Arrival {
        TraceEvent event;
        Attribution::Meaning meaning;
        std::size_t number = 0;
        /// Whether a step has used it.
        bool claimed = false;
        /// Whether it came after the last frame that was sent.
        bool afterSending = false;
    };

    std::deque<Arrival>& arrivals() { return arrivals_; }
    void forget() { arrivals_.clear(); }
    void claim(Arrival& arrival);

    /// @returns whether the latest frame is the first answer to the latest command.
    bool latestAnswers() const;

    Attribution& attribution() { return attribution_; }

    /// @returns the number of the next event.
    std::size_t position() const { return run_.events.next(); }

    /// @returns how long all frames so far take on the line.
    Duration wireTime() const;

private:
    record::Run& run_;
    Observer& observer_;
    Attribution attribution_;
    SecretMask mask_;
    std::deque<Arrival> arrivals_;
    std::size_t bytes_ = 0;
};

}  // namespace station::plan
