#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <semaphore>
#include <string>

#include "programs/station/plan/Answers.h"
#include "station/plan/Prompter.h"

namespace programs::station_tool {

/// Takes answers from a file, else from whoever sits at the terminal: one question at a time, whatever the number of
/// units.
class Operator : public station::plan::Prompter
{
public:
    /// @param answers outlives this object
    /// @param labelled whether the port is put in front of a question
    /// @param aside is called with true before a question is shown and with false after it, to keep other output away
    Operator(const Answers& answers, bool labelled, std::function<void(bool)> aside);

    std::optional<std::string> ask(const station::plan::Question& question, station::Interrupt& interrupt) override;

private:
    using Clock = std::chrono::steady_clock;

    std::optional<std::string> askAtTerminal(const station::plan::Question& question, station::Interrupt& interrupt,
                                             Clock::time_point deadline);
    std::string takenBy(const station::plan::Question& question, const std::string& answer);
    std::optional<std::string> readLine(station::Interrupt& interrupt, Clock::time_point deadline);

    const Answers& answers_;
    const bool labelled_;
    const std::function<void(bool)> aside_;
    std::mutex mutex_;
    /// Ports by question and answer, of the questions that want another answer for each unit; guarded by mutex_.
    std::map<std::pair<std::string, std::string>, std::string> given_;
    // No timed mutex: ThreadSanitizer does not know how the library waits for one.
    std::binary_semaphore turn_{1};
    std::string typed_;  // whose turn it is has it: of the answer that is being typed
};

}  // namespace programs::station_tool
