#pragma once

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
    /// Zero for no limit.
    Duration timeout{0};
};

/// Asks the operator. May be called by several threads: one question at a time is shown.
class Prompter
{
public:
    virtual ~Prompter() = default;

    /// @returns "yes" or "no", a number, or text, as the question wants; nothing when the time was over.
    /// Throws NoAnswer, and Interrupted when `interrupt` wants an end.
    virtual std::optional<std::string> ask(const Question& question, Interrupt& interrupt) = 0;
};

}  // namespace station::plan
