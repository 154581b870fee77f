#pragma once

#include <deque>
#include <optional>
#include <string>

#include "station/Connection.h"
#include "station/plan/LineWatch.h"
#include "station/plan/RunControl.h"
#include "station/plan/Runner.h"
#include "station/plan/UnitSerial.h"
#include "station/plan/Variables.h"

namespace station::plan {

/// Does one attempt of a step, whatever its kind. For one thread.
class StepRunner
{
public:
    StepRunner(Connection& connection, LineWatch& line, const Surroundings& surroundings, RunControl& control,
               record::Run& run, UnitSerial& serial, Observer& observer);

    /// Adds an attempt to the step's record.
    /// @param place of the step, for the observer; its texts live as long as the plan
    void attempt(const Step& step, const StepPlace& place, record::Step& record);

    bool linkFailed() const { return linkFailed_; }
    bool interrupted() const { return interrupted_; }

    /// Leaves the steps up to this try as they are: later answers to them change nothing.
    void forget(const record::Group::Try& closed);

    /// Receives frames, or the loss of the line, after a time in which no step did.
    void lookAtLine();

    /// After the line came back, and after three time-outs in a row, asks a unit that was in auto-test mode whether it
    /// still is.
    /// @returns whether it says no.
    bool unitRestarted();
    const Variables& variables() const { return variables_; }

    /// Gives a variable its value before the first step.
    void know(const std::string& variable, const std::string& value) { variables_[variable] = value; }

    /// Limits the time of the following steps; nullptr for no limit.
    void limitBy(const TimeLimit* limit) { limit_ = limit; }

private:
    /// The attempt that sent the commands from this number on.
    struct Sender {
        std::size_t firstRequest = 0;
        StepPlace place;
        record::Step* step = nullptr;
        record::Attempt* attempt = nullptr;
    };

    void run(const Send& send, const Step& step, record::Attempt& attempt);
    void run(const Wait& wait, const Step& step, record::Attempt& attempt);
    void run(const Prompt& prompt, const Step& step, record::Attempt& attempt);
    void run(const HeadUnitAction& action, const Step& step, record::Attempt& attempt);
    void run(const Pause& pause, const Step& step, record::Attempt& attempt);
    // These are in StepRunnerFixture.cpp.
    void run(const RunProgram& program, const Step& step, record::Attempt& attempt);
    void run(const InstrumentCommand& command, const Step& step, record::Attempt& attempt);
    void run(const PowerChange& change, const Step& step, record::Attempt& attempt);

    void takeValues(const std::vector<Expected>& expected, std::vector<record::Measurement> values,
                    const std::vector<StoredField>& store, record::Attempt& attempt);
    void switchPower(PowerChange::To to, Duration timeout, record::Attempt& attempt);
    void awaitUnit(Connection::Clock::time_point deadline, const Step& step, record::Attempt& attempt);
    void pauseAsideOfLine(Duration time);

    void store(const std::string& variable, const std::string& value, Keep keep);
    std::optional<protocol::Frame> exchange(const Send& send, const protocol::Frame& frame, Duration timeout,
                                            record::Attempt& attempt);
    void poll(const Send& send, const protocol::Frame& frame, const Step& step, record::Attempt& attempt);
    void explainSilence(const Send& send, Duration timeout, std::size_t corrupt, record::Attempt& attempt);
    /// Adds the arrivals to the attempts that they belong to.
    void attribute();
    void attribute(LineWatch::Arrival& arrival, const Attribution::Request& request);
    /// Receives the frames that came with an answer.
    void listenBriefly();
    void judgeFrame(const protocol::Frame& frame, const protocol::catalogue::Command* asked,
                    const std::vector<Expected>& expected, const std::vector<StoredField>& store,
                    record::Attempt& attempt);
    /// @returns nothing if the time is over first.
    std::optional<protocol::Frame> awaitFrame(const std::function<bool(const protocol::Frame&)>& wanted,
                                              Duration timeout);
    /// @returns whether the command sets or reads auto-test mode: the unit answers it in either mode.
    bool isOfTestMode(const protocol::catalogue::Command& command) const;
    void lookForMode(const protocol::catalogue::Decoded& decoded);
    /// @param prefix "write-" for the command that writes the unit's serial record; "" for the one that reads it
    bool isSerialCommand(const protocol::catalogue::Command& command, const char* prefix) const;

    Connection& connection_;
    LineWatch& line_;
    const Surroundings& surroundings_;
    RunControl& control_;
    record::Run& run_;
    UnitSerial& serial_;
    Observer& observer_;
    Variables variables_;
    std::deque<Sender> senders_;  // the latest last
    /// The step that has not ended; nullptr between attempts.
    const record::Step* current_ = nullptr;
    const TimeLimit* limit_ = nullptr;
    bool linkFailed_ = false;
    bool interrupted_ = false;
    /// Time-outs in a row.
    int timeouts_ = 0;
    /// How often the line had come back when the mode was asked for.
    std::size_t reconnectsSeen_ = 0;
    /// Whether the unit has said that auto-test mode is on, and has not said otherwise since.
    bool modeSeenOn_ = false;
    /// A step has switched the power off.
    bool unitOff_ = false;
};

}  // namespace station::plan
