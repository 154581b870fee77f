#pragma once

#include <stdexcept>
#include <string>
#include <utility>

/// The three kinds of error that end what a user of a host program asked for. Whoever finds one throws it, with one
/// line that names the place, what was expected and what came; `main` catches it once, prints the line and exits with
/// its status.
namespace protocol {

/// Exit statuses: the first four of every program, all of them of the station tool. docs/station.md explains them.
enum ExitStatus : int {
    kPassed = 0,
    kFailed = 1,
    kWrongUse = 2,
    kNoAnswer = 3,
    kInterrupted = 4,
    kNothingRun = 5,
    kError = 6,
    kNotRecorded = 7,
    kPortUnavailable = 10,
    kLineFailed = 11,
    kReadBackDiffers = 12,
};

/// What all three have in common. Only `main` catches it.
class Error : public std::runtime_error
{
public:
    Error(const std::string& line, const char* kind, ExitStatus status, std::string remedy = {})
        : std::runtime_error(line), kind_(kind), status_(status), remedy_(std::move(remedy))
    {
    }

    /// "user", "line" or "storage", of an interrupted call "interrupted": with --json the value of "kind".
    const char* kind() const { return kind_; }
    ExitStatus status() const { return status_; }

    /// What the user at this machine can do, to be printed behind the line but not stored; empty for nothing.
    const std::string& remedy() const { return remedy_; }

private:
    const char* kind_;
    ExitStatus status_;
    std::string remedy_;
};

/// The user's mistake, in an option, a word or a file: "plan.toml:6:19: 'tuner.pla' is not a command; did you mean
/// 'tuner.play'?"
class UserError : public Error
{
public:
    explicit UserError(const std::string& line, ExitStatus status = kWrongUse) : Error(line, "user", status) {}
};

/// The port, the line or the unit at its other end: kPortUnavailable, kLineFailed or kNoAnswer.
class LineError : public Error
{
public:
    LineError(const std::string& line, ExitStatus status, std::string remedy = {})
        : Error(line, "line", status, std::move(remedy))
    {
    }
};

/// A file, a database or a results folder that cannot be read or written.
class StorageError : public Error
{
public:
    explicit StorageError(const std::string& line, ExitStatus status = kFailed) : Error(line, "storage", status) {}
};

}  // namespace protocol
