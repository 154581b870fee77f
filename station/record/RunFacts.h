#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <string>

#include "station/record/RunRecord.h"

namespace station::record {

/// Appends groups and tries to a run, which stays small however long it gets: of a group that is repeated often, it
/// keeps the figures, the first tries that failed, the first that were tried again, one that passed and one that was
/// skipped.
class RunFacts
{
public:
    /// The most tries of a group that are all kept.
    static constexpr std::size_t kWholeGroup = 100;
    /// The most failed tries that are kept of a larger group. As many superseded ones are kept.
    static constexpr std::size_t kKeptFailures = 200;
    /// The most steps in either, unless the first try has more.
    static constexpr std::size_t kKeptSteps = 4'000;
    /// A verdict may change until so many steps follow.
    static constexpr std::size_t kOpenSteps = 16;
    /// The most steps of a run whose record.json is complete.
    static constexpr std::size_t kWholeRun = 9'999;

    using OnClosed = std::function<void(const Group::Try&)>;

    /// @param run outlives this object
    /// @param whole how many steps the run may have before tries are left out
    /// @param onClosed called when the verdict of a try of a large group can no longer change
    explicit RunFacts(
        Run& run, std::size_t whole = 0, OnClosed onClosed = [](const Group::Try&) {});

    Group& beginGroup(Phase& phase, std::string name);
    Group::Try& beginTry();
    /// The last try has all its steps.
    void endTry(bool superseded);
    /// Nothing follows.
    void end();

private:
    /// What it knows about a group that leaves tries out.
    struct Large {
        std::array<std::size_t, 4> kept{};
        std::array<std::size_t, 4> keptSteps{};
        /// The events before it have been kept or released.
        std::size_t position = 0;
        bool afterSuperseded = false;
    };

    void leaveOut(Group& group, bool all);
    bool close(Group& group, Large& large, std::size_t index);
    bool keep(Large& large, const Group::Try& one) const;

    Run& run_;
    const std::size_t whole_;
    const OnClosed onClosed_;
    Group* group_ = nullptr;
    std::map<Group*, Large> large_;
    std::size_t steps_ = 0;
};

}  // namespace station::record
