#pragma once

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>

#include "station/Interrupt.h"
#include "station/plan/Plan.h"

namespace station::plan {

/// Nobody can answer; says why in one line.
class NoAnswer : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

struct Question {
    /// The port of the unit that is asked about.
    std::string port;
    const Prompt& prompt;
    /// Counted from when the question is shown; zero for no limit.
    Duration timeout{0};
};

/// How far a run has come.
struct Progress {
    /// The number of the step that begins, each step counted as often as the plan repeats its group; from 0. It goes
    /// back when a group is tried again.
    std::size_t step = 0;
    /// Whether the run tears down: its time is limited.
    bool inTeardown = false;
};

/// Asks the operator. May be called by several threads: one question at a time is shown.
class Prompter
{
public:
    virtual ~Prompter() = default;

    /// @returns "yes" or "no", a number, or text, as the question wants; nothing when the time was over.
    /// Throws NoAnswer, and Interrupted when `interrupt` wants an end.
    virtual std::optional<std::string> ask(const Question& question, Interrupt& interrupt) = 0;

    /// The run at `port` begins a step, or skips it.
    virtual void reached(const std::string& /*port*/, const Progress&) {}
};

}  // namespace station::plan
