#pragma once

#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "station/plan/Answers.h"
#include "station/plan/Surroundings.h"

namespace programs::station_tool {

/// Takes answers from a file, else from the operator at the terminal: one question at a time, for any number of units.
/// The ports get a question in their order: a port waits until the ports before it have been asked or are past the
/// step. In a teardown, whose time is limited, it waits only for ports that tear down, too.
class Operator : public station::plan::Prompter
{
public:
    /// @param answers outlives this object
    /// @param ports of the runs, in their order; with several of them a question begins with its port
    /// @param aside is called with true before a question is shown and with false after it, to keep other output away
    Operator(const station::plan::Answers& answers, const std::vector<std::string>& ports,
             std::function<void(bool)> aside);

    std::optional<std::string> ask(const station::plan::Question& question, station::Interrupt& interrupt) override;
    void reached(const std::string& port, const station::plan::Progress& progress) override;
    /// The run at `port` has ended or could not begin. To be called once for every port, else the others wait for it.
    void ended(const std::string& port);

private:
    using Clock = std::chrono::steady_clock;

    /// Guarded by mutex_, except for `name` and `turn`.
    struct Port {
        explicit Port(std::string portName) : name(std::move(portName)) {}

        const std::string name;
        station::plan::Progress progress;
        /// Whether its question at this step has been dealt with.
        bool asked = false;
        bool ended = false;
        bool waiting = false;
        /// Wakes the run when its question is to be shown.
        station::Interrupt turn;
    };
    class Turn;

    Port& portOf(const std::string& name);
    static bool goesFirst(const Port& earlier, const Port& later);
    void passTurnLocked();
    std::optional<std::string> askAtTerminal(const station::plan::Question& question, station::Interrupt& interrupt,
                                             Clock::time_point deadline);
    std::string takenBy(const station::plan::Question& question, const std::string& answer);
    std::optional<std::string> readLine(station::Interrupt& interrupt, Clock::time_point deadline);

    const station::plan::Answers& answers_;
    const bool labelled_;
    const std::function<void(bool)> aside_;
    std::mutex mutex_;
    /// Ports by question and answer, of the questions that need another answer for each unit; guarded by mutex_.
    std::map<std::pair<std::string, std::string>, std::string> given_;
    std::deque<Port> ports_;
    const Port* shown_ = nullptr;  // whose question is shown; guarded by mutex_
    std::string typed_;            // whose turn it is has it: of the answer that is being typed
};

}  // namespace programs::station_tool
