#include "tests/support/ChildProcess.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <iterator>
#include <sstream>
#include <system_error>
#include <utility>

#include "host/Descriptor.h"

extern char** environ;

namespace tests {

namespace {

struct Pipe {
    Pipe()
    {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe");
        }
        readEnd.reset(ends[0]);
        writeEnd.reset(ends[1]);
    }

    host::Descriptor readEnd;
    host::Descriptor writeEnd;
};

std::vector<std::string> merge(const ChildProcess::Environment& changes)
{
    std::vector<std::string> merged;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view text(*entry);
        if (!changes.contains(std::string(text.substr(0, text.find('='))))) {
            merged.emplace_back(text);
        }
    }
    for (const auto& [name, value] : changes) {
        if (value) {
            merged.push_back(name + "=" + *value);
        }
    }
    return merged;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    std::ranges::transform(texts, std::back_inserter(pointers), [](std::string& text) { return text.data(); });
    pointers.push_back(nullptr);
    return pointers;
}

/// The child's side of the fork; may only do what a signal handler may.
[[noreturn]] void becomeProgram(char** arguments, char** environment, int in, int out, int err, pid_t parent)
{
    constexpr int kCannotExecute = 127;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent || dup2(in, STDIN_FILENO) < 0 || dup2(out, STDOUT_FILENO) < 0 ||
        dup2(err, STDERR_FILENO) < 0) {
        _exit(kCannotExecute);
    }
    execvpe(arguments[0], arguments, environment);
    _exit(kCannotExecute);
}

int statusOf(const siginfo_t& info)
{
    return info.si_code == CLD_EXITED ? info.si_status : 128 + info.si_status;
}

}  // namespace

std::vector<std::string> throughEmulator(std::vector<std::string> arguments)
{
    const std::string_view emulator = PROGRAM_EMULATOR;
    if (!emulator.empty() && arguments.at(0).starts_with(BUILT_PROGRAMS)) {
        arguments.insert(arguments.begin(), std::string(emulator));
    }
    return arguments;
}

std::string shellWords(const std::string& program)
{
    std::string words;
    for (const std::string& word : throughEmulator({program})) {
        words += (words.empty() ? "" : " ") + word;
    }
    return words;
}

ChildProcess::ChildProcess(const std::vector<std::string>& arguments, const Environment& environment)
{
    auto argumentTexts = throughEmulator(arguments);
    auto environmentTexts = merge(environment);
    const auto argumentPointers = pointersTo(argumentTexts);
    const auto environmentPointers = pointersTo(environmentTexts);
    Pipe out;
    Pipe err;
    const host::Descriptor in(open("/dev/null", O_RDONLY | O_CLOEXEC));
    const pid_t self = getpid();
    pid_ = fork();
    if (pid_ == 0) {
        becomeProgram(const_cast<char**>(argumentPointers.data()), const_cast<char**>(environmentPointers.data()),
                      in.get(), out.writeEnd.get(), err.writeEnd.get(), self);
    }
    if (pid_ < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    outReader_ = std::thread([this, end = out.readEnd.release()] { collect(end, out_); });
    errReader_ = std::thread([this, end = err.readEnd.release()] { collect(end, err_); });
    waiter_ = std::thread([this] { awaitEnd(); });
}

ChildProcess::~ChildProcess()
{
    signal(SIGKILL);
    waiter_.join();
    outReader_.join();
    errReader_.join();
}

void ChildProcess::signal(int number)
{
    const std::lock_guard lock(mutex_);
    // Reaped under the same mutex: the number still belongs to our child.
    if (!status_) {
        kill(pid_, number);
    }
}

std::optional<int> ChildProcess::wait(std::chrono::nanoseconds timeout)
{
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, timeout, [this] { return status_ && out_.closed && err_.closed; });
    return status_;
}

std::optional<std::string> ChildProcess::waitForLine(Stream stream, const LinePredicate& predicate,
                                                     std::chrono::nanoseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    const Output& output = outputOf(stream);
    std::unique_lock lock(mutex_);
    for (;;) {
        const auto all = linesLocked(output);
        const auto found = std::ranges::find_if(all, predicate);
        if (found != all.end()) {
            return *found;
        }
        if (output.closed || changed_.wait_until(lock, deadline) == std::cv_status::timeout) {
            return std::nullopt;
        }
    }
}

std::optional<std::string> ChildProcess::waitForLine(Stream stream, std::string_view part,
                                                     std::chrono::nanoseconds timeout)
{
    return waitForLine(
        stream, [part](const std::string& line) { return line.find(part) != std::string::npos; }, timeout);
}

std::string ChildProcess::output(Stream stream) const
{
    const std::lock_guard lock(mutex_);
    return outputOf(stream).text;
}

std::vector<std::string> ChildProcess::lines(Stream stream) const
{
    const std::lock_guard lock(mutex_);
    return linesLocked(outputOf(stream));
}

std::vector<std::string> ChildProcess::linesLocked(const Output& output)
{
    std::vector<std::string> all;
    std::istringstream text(output.text);
    for (std::string line; std::getline(text, line);) {
        if (!text.eof() || output.closed) {
            all.push_back(line);
        }
    }
    return all;
}

void ChildProcess::collect(int descriptor, Output& output)
{
    const host::Descriptor closed(descriptor);
    std::array<char, 4096> chunk;
    for (;;) {
        const ssize_t count = read(descriptor, chunk.data(), chunk.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        const std::lock_guard lock(mutex_);
        output.closed = count <= 0;
        if (count > 0) {
            output.text.append(chunk.data(), static_cast<std::size_t>(count));
        }
        changed_.notify_all();
        if (count <= 0) {
            break;
        }
    }
}

void ChildProcess::awaitEnd()
{
    siginfo_t info{};
    while (waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
    }
    const std::lock_guard lock(mutex_);
    waitpid(pid_, nullptr, 0);
    status_ = statusOf(info);
    changed_.notify_all();
}

Outcome run(const std::vector<std::string>& arguments, const ChildProcess::Environment& environment)
{
    ChildProcess process(arguments, environment);
    const auto status = process.wait();
    return {status.value_or(-1), process.output(ChildProcess::Stream::kOut),
            process.output(ChildProcess::Stream::kErr)};
}

std::string sanitizerReport(const std::string& text)
{
    std::istringstream all(text);
    for (std::string line; std::getline(all, line);) {
        for (const char* mark : {"WARNING: ThreadSanitizer", "ERROR: AddressSanitizer", "ERROR: LeakSanitizer",
                                 "runtime error:", "FATAL: ThreadSanitizer"}) {
            if (line.find(mark) != std::string::npos) {
                return line;
            }
        }
    }
    return {};
}

}  // namespace tests
