#pragma once

#include <memory>
#include <string>

#include "station/plan/RunSummary.h"
#include "station/plan/Surroundings.h"

namespace programs::station_tool {

/// Shows runs while they go on, on standard output.
class RunView
{
public:
    virtual ~RunView() = default;

    /// @returns the observer that shows the run at `port`; it lives as long as the view. Called on the thread of the
    /// run.
    virtual station::plan::Observer& add(const std::string& port) = 0;

    /// Called ten times a second or so, on one thread.
    virtual void tick() {}
    /// Keeps off the screen while a question stands there.
    virtual void aside(bool) {}
    /// All runs have ended.
    virtual void finish(std::span<const station::plan::UnitResult> units) = 0;
};

/// A line per step and a summary.
/// @param quiet the summary only
/// @param verbose also the time that the tool adds per step
std::unique_ptr<RunView> makeLineView(bool labelled, bool quiet, bool verbose);

/// A JSON object per line.
std::unique_ptr<RunView> makeJsonView();

/// Progress, current step and latest frames at the bottom of a terminal, a line per step above.
std::unique_ptr<RunView> makeLiveView(const station::plan::Plan& plan, bool labelled, bool verbose);

}  // namespace programs::station_tool
