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

/// What a test waits for anything at most: far more than even a loaded machine needs.
inline constexpr std::chrono::seconds kGenerous{20};

/// A program that a test runs. Both output streams are collected all the while, so that it never blocks on them.
/// Killed and reaped at the end of the object's life, and killed when the test process dies. All functions may be
/// called from any thread; the object is to be created on a thread that outlives it.
class ChildProcess
{
public:
    /// Variables to set, or with no value to remove; the rest is the test's own environment.
    using Environment = std::map<std::string, std::optional<std::string>>;
    using LinePredicate = std::function<bool(const std::string&)>;

    enum class Stream { kOut, kErr };

    /// Starts `arguments[0]`, which is looked up in PATH when it has no slash. Standard input is empty. A program that
    /// cannot be executed ends with status 127. In a cross build, a program of the build runs under the emulator.
    explicit ChildProcess(const std::vector<std::string>& arguments, const Environment& environment = {});
    ~ChildProcess();

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return pid_; }

    /// Sends `number` to the process; nothing happens when it has ended.
    void signal(int number);

    /// Waits until the process has ended and its output is complete.
    /// @returns its exit status, 128 plus the signal when a signal ended it, or nothing when it still runs after
    /// `timeout`.
    std::optional<int> wait(std::chrono::nanoseconds timeout = kGenerous);

    /// Waits for a line that satisfies `predicate`, those included that came before the call.
    /// @returns the first such line, or nothing when it did not come within `timeout` or can no longer come.
    std::optional<std::string> waitForLine(Stream stream, const LinePredicate& predicate,
                                           std::chrono::nanoseconds timeout = kGenerous);

    /// As above, for a line that contains `part`.
    std::optional<std::string> waitForLine(Stream stream, std::string_view part,
                                           std::chrono::nanoseconds timeout = kGenerous);

    /// @returns what has come so far; all of it once wait() has returned a status.
    std::string output(Stream stream) const;

    /// @returns the whole lines of what has come so far, and the last one also without its end once the process has
    /// closed the stream.
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

/// @returns what starts the program. The machine's own run as they are; what this build has made may be for another
/// processor, and is then started through the emulator.
std::vector<std::string> throughEmulator(std::vector<std::string> arguments);

/// The same for a shell's command line, where it stands without quotes.
std::string shellWords(const std::string& program);

}  // namespace tests
