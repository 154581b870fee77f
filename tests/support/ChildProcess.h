#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace tests {

/// The time limit of tests: far more than even a loaded machine needs.
inline constexpr std::chrono::seconds kGenerous{20};

/// A program that a test runs. Collects both output streams all the time, so the program never blocks on them. The end
/// of the object kills and reaps the program; the death of the test process kills it too. Any thread may call any
/// function. The thread that creates the object must outlive it.
class ChildProcess
{
public:
    /// Variables to set, or without a value to remove. The others come from the environment of the test.
    using Environment = std::map<std::string, std::optional<std::string>>;
    using LinePredicate = std::function<bool(const std::string&)>;

    enum class Stream { kOut, kErr };

    /// Starts `arguments[0]`; a name without a slash is looked up in PATH. Standard input is empty. If the program
    /// cannot be executed, the status is 127. In a cross build, programs of the build run under the emulator.
    explicit ChildProcess(const std::vector<std::string>& arguments, const Environment& environment = {});
    ~ChildProcess();

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return pid_; }

    /// Sends signal `number` to the process, unless it has ended.
    void signal(int number);

    /// Waits until the process has ended and its output is complete.
    /// @returns its exit status, or 128 plus the number of the signal that ended it; nothing if it still runs after
    /// `timeout`.
    std::optional<int> wait(std::chrono::nanoseconds timeout = kGenerous);

    /// Waits for a line that satisfies `predicate`, including earlier lines.
    /// @returns the first such line; nothing if it does not come within `timeout` or can no longer come.
    std::optional<std::string> waitForLine(Stream stream, const LinePredicate& predicate,
                                           std::chrono::nanoseconds timeout = kGenerous);

    /// As above, for a line that contains `part`.
    std::optional<std::string> waitForLine(Stream stream, std::string_view part,
                                           std::chrono::nanoseconds timeout = kGenerous);

    /// @returns the output so far; all of it after wait() has returned a status.
    std::string output(Stream stream) const;

    /// @returns the complete lines so far. After the process has closed the stream, also a last line without its end.
    std::vector<std::string> lines(Stream stream) const;

private:
    struct Output {
        std::string text;     // guarded by mutex_
        bool closed = false;  // guarded by mutex_
    };

    Output& outputOf(Stream stream) { return stream == Stream::kOut ? out_ : err_; }
    const Output& outputOf(Stream stream) const { return stream == Stream::kOut ? out_ : err_; }
    static std::vector<std::string> linesLocked(const Output& output);
    void collect(int descriptor, Output& output);
    void awaitEnd();

    pid_t pid_ = -1;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::optional<int> status_;  // guarded by mutex_
    Output out_;
    Output err_;
    std::thread outReader_;
    std::thread errReader_;
    std::thread waiter_;
};

/// Runs a program to its end.
struct Outcome {
    int status = -1;  // -1: it did not end in time
    std::string out;
    std::string err;
};
Outcome run(const std::vector<std::string>& arguments, const ChildProcess::Environment& environment = {});

/// @returns the first line of a sanitizer's report in `text`, empty when there is none.
std::string sanitizerReport(const std::string& text);

/// @returns the command that starts the program: programs of this build run through the emulator in a cross build,
/// others directly.
std::vector<std::string> throughEmulator(std::vector<std::string> arguments);

/// The same as words of a shell command, without quotes.
std::string shellWords(const std::string& program);

}  // namespace tests
