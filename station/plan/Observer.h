#pragma once

#include <cstddef>
#include <string_view>

#include "station/plan/Plan.h"
#include "station/record/RunRecord.h"

namespace station::plan {

/// Where in a plan a step stands.
struct StepPlace {
    std::string_view phase;
    std::string_view group;
    /// Of the group, when it is repeated or tried again; from 1.
    std::size_t round = 1;
    /// Of the plan's steps in all three phases, from 0.
    std::size_t index = 0;
    std::size_t total = 0;
};

/// Is told how a run goes, on the thread that runs it. What it throws ends the run like an error of the program.
class Observer
{
public:
    virtual ~Observer() = default;

    /// The run begins; its id may still be changed.
    virtual void onStarted(record::Run&) {}
    /// @param attempt from 1
    virtual void onAttempt(const StepPlace&, const Step&, std::size_t /*attempt*/) {}
    virtual void onFrame(const TraceEvent&) {}
    virtual void onStepEnded(const StepPlace&, const record::Step&) {}
    /// A step that has ended turned out otherwise: a second answer to it came.
    virtual void onStepAmended(const StepPlace&, const record::Step&) {}
    virtual void onGroupEnded(std::string_view /*phase*/, const record::Group&, const record::Run&) {}
    virtual void onEnded(const record::Run&) {}
};

}  // namespace station::plan
