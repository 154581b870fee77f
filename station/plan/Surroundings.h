#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "station/Interrupt.h"
#include "station/instrument/Instruments.h"
#include "station/plan/Plan.h"
#include "station/plan/UnitSerial.h"
#include "station/record/RunRecord.h"

/// What a run needs besides its plan and its port: an operator, perhaps a simulated head unit, and observers.
namespace station::plan {

/// The simulated head unit, where there is one. All functions may be called from any thread and return within seconds.
class HeadUnit
{
public:
    virtual ~HeadUnit() = default;

    virtual bool present() = 0;
    /// Replaces a value of the state. Throws protocol::LineError.
    virtual void set(const std::string& path, const std::string& json) = 0;
    /// Raises an event and returns after it has been delivered. Throws protocol::LineError.
    virtual void raise(const std::string& event, const std::string& json) = 0;
};

struct Question {
    /// The port of the unit that is asked about.
    std::string port;
    const Prompt& prompt;
    /// Counted from when the question is shown; zero for no limit.
    Duration timeout{0};
    /// Says why a typed answer is to be asked for again; empty for a good one.
    std::function<std::string(const std::string&)> mistyped = {};
};

/// How far a run has come.
struct Progress {
    /// The number of the step that begins, each step counted as often as the plan repeats its group; from 0. It goes
    /// back when a group is tried again.
    std::size_t step = 0;
    /// Whether the run tears down: its time is limited.
    bool inTeardown = false;
};

/// Asks the operator. Several threads may call it; it shows one question at a time.
class Prompter
{
public:
    virtual ~Prompter() = default;

    /// @returns "yes" or "no", a number, or a text, as the question demands; nothing if the time ends first.
    /// Throws protocol::UserError if nobody can answer, and Interrupted.
    virtual std::optional<std::string> ask(const Question& question, Interrupt& interrupt) = 0;

    /// The run at `port` begins a step, or skips it.
    virtual void reached(const std::string& /*port*/, const Progress&) {}
};

using record::StepPlace;

/// Watches a run, on the thread of the run. An exception from it ends the run and leaves runPlan().
class Observer
{
public:
    virtual ~Observer() = default;

    /// The run begins; its id may still be changed.
    virtual void onStarted(record::Run&) {}
    /// @param attempt from 1
    virtual void onAttempt(const StepPlace&, const Step&, std::size_t /*attempt*/) {}
    virtual void onFrame(const TraceEvent&) {}
    /// A step has used the event of this number, counted from 0.
    virtual void onClaimed(std::size_t /*event*/) {}
    virtual void onGroup(std::string_view /*phase*/, const record::Group&) {}
    virtual void onStepEnded(const StepPlace&, const record::Step&) {}
    /// A step that has ended has another verdict now: a second answer to it came.
    virtual void onStepAmended(const StepPlace&, const record::Step&) {}
    /// The steps are done, and the record and its reports are being written.
    virtual void onWriting() {}
    /// The group's last try has ended.
    virtual void onTryEnded(std::string_view /*phase*/, const record::Group&) {}
    virtual void onEnded(const record::Run&) {}
};

/// What several runs may share. All of it outlives the runs.
struct Surroundings {
    protocol::catalogue::Groups groups;
    Prompter& prompter;
    HeadUnit& headUnit;
    SerialRecord serialRecord = {};
    /// The serial numbers of the units at the ports of these runs.
    std::shared_ptr<SerialsAtPorts> serials = std::make_shared<SerialsAtPorts>();
    /// What the station has besides the line.
    std::shared_ptr<instrument::Instruments> instruments =
        std::make_shared<instrument::Instruments>(instrument::Equipment{});
};

}  // namespace station::plan
