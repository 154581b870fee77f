#pragma once

#include <deque>
#include <optional>
#include <string>

#include "station/Connection.h"
#include "station/plan/Engine.h"
#include "station/plan/LineRecord.h"
#include "station/plan/TimeLimit.h"
#include "station/plan/Variables.h"

namespace station::plan {

/// Where in a run an attempt stands.
struct AttemptPlace {
    std::size_t phase = 0;
    std::size_t group = 0;
    std::size_t round = 0;
    std::size_t step = 0;
    std::size_t attempt = 0;
    /// What an observer is told of the step's place; its texts live as long as the plan.
    StepPlace told;
};

/// Does one attempt of a step, whatever its kind. For one thread.
class StepRunner
{
public:
    StepRunner(Connection& connection, LineRecord& line, const Surroundings& surroundings, RunControl& control,
               record::Run& run, Observer& observer);

    /// Fills the attempt at `place` of the run.
    void attempt(const Step& step, const AttemptPlace& place);

    bool linkFailed() const { return linkFailed_; }
    bool interrupted() const { return interrupted_; }
    const Variables& variables() const { return variables_; }

    /// What limits the time of the steps from here on; nullptr for nothing.
    void limitBy(const TimeLimit* limit) { limit_ = limit; }

private:
    /// A command that was sent, and where its answer belongs.
    struct Asked {
        const protocol::catalogue::Command* command = nullptr;
        protocol::Frame frame;
        ReplyRule reply = ReplyRule::kRequired;
        AttemptPlace place;
        std::chrono::steady_clock::time_point at;
        bool answered = false;

        /// @returns whether its answer was waited for, and is still to come.
        bool awaited() const { return !answered && reply == ReplyRule::kRequired; }
    };

    void run(const Send& send, const Step& step, record::Attempt& attempt);
    void run(const Wait& wait, const Step& step, record::Attempt& attempt);
    void run(const Prompt& prompt, const Step& step, record::Attempt& attempt);
    void run(const HeadUnitAction& action, const Step& step, record::Attempt& attempt);

    std::optional<protocol::Frame> exchange(const Send& send, const protocol::Frame& frame, Duration timeout,
                                            record::Attempt& attempt);
    void explainSilence(const Send& send, Duration timeout, std::size_t corrupt, record::Attempt& attempt);
    void refuseSecondAnswer(const Send& send, record::Attempt& attempt);
    void judgeFrame(const protocol::Frame& frame, const protocol::catalogue::Command* asked,
                    const std::vector<Expected>& expected, const std::vector<Store>& store, record::Attempt& attempt);
    std::optional<protocol::Frame> awaitFrame(const std::function<bool(const protocol::Frame&)>& wanted,
                                              Duration timeout);
    void takeStrays();
    /// @returns whether the command sets or reads auto-test mode, and so is answered without it.
    bool isOfTestMode(const protocol::catalogue::Command& command) const;
    void lookForMode(const protocol::catalogue::Decoded& decoded);
    bool answersOne(const Asked& asked, const protocol::Frame& frame) const;
    void amend(const Asked& asked, record::Verdict verdict, const std::string& reason);
    std::string describe(const protocol::Frame& frame) const;

    Connection& connection_;
    LineRecord& line_;
    const Surroundings& surroundings_;
    RunControl& control_;
    record::Run& run_;
    Observer& observer_;
    Variables variables_;
    std::deque<Asked> asked_;  // the latest last
    AttemptPlace place_;
    const TimeLimit* limit_ = nullptr;
    bool linkFailed_ = false;
    bool interrupted_ = false;
    /// Whether the unit has said that auto-test mode is on, and has not said otherwise since.
    bool modeSeenOn_ = false;
};

}  // namespace station::plan
