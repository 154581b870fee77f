#include "station/instrument/Program.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <limits>
#include <string_view>
#include <system_error>

#include "host/Descriptor.h"
#include "protocol/Errors.h"

extern char** environ;

namespace station::instrument {

namespace {

using Clock = std::chrono::steady_clock;

/// From SIGTERM to SIGKILL.
constexpr int kGraceMs = 500;

/// What a process that cannot be killed, such as one that waits for a broken disk, may cost.
constexpr auto kKillPatience = std::chrono::seconds(5);

/// A message of the guard.
struct Report {
    enum : int { kNotStarted, kEnded } what = kEnded;
    /// An errno, or a status of waitpid().
    int value = 0;
};

/// The descriptors of the guard, in this order.
enum GuardsDescriptor : int { kInput, kOutput, kErrors, kControl, kReport, kCount };

/// What the guard needs. All of it is made before the fork.
struct Launch {
    const char* path = nullptr;
    const char* folder = nullptr;
    char* const* arguments = nullptr;
    std::array<int, kCount> descriptors{};
};

// Between fork() and execve() of a process with threads, only system calls are safe. The guard never executes anything,
// so all of it is like that.

void send(Report report)
{
    while (write(kReport, &report, sizeof report) < 0 && errno == EINTR) {
    }
}

[[noreturn]] void execute(const Launch& launch)
{
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    struct sigaction standard = {};
    standard.sa_handler = SIG_DFL;
    for (const int number : {SIGPIPE, SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCHLD, SIGXFSZ}) {
        sigaction(number, &standard, nullptr);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    if (chdir(launch.folder) == 0) {
        execve(launch.path, launch.arguments, environ);
    }
    send({Report::kNotStarted, errno});
    _exit(127);
}

/// Kills the children of this process.
void killChildren()
{
    std::array<char, 4096> text;
    const int list = open("/proc/thread-self/children", O_RDONLY | O_CLOEXEC);
    pid_t child = 0;
    for (ssize_t count = 0; list >= 0 && (count = read(list, text.data(), text.size())) > 0;) {
        for (ssize_t i = 0; i < count; ++i) {
            if (text[static_cast<std::size_t>(i)] >= '0' && text[static_cast<std::size_t>(i)] <= '9') {
                child = child * 10 + (text[static_cast<std::size_t>(i)] - '0');
            } else if (child > 0) {
                kill(child, SIGKILL);
                child = 0;
            }
        }
    }
    close(list);
}

/// Waits until the program ends or the station closes the control pipe.
void awaitEnd(pid_t program)
{
    const int end = static_cast<int>(syscall(SYS_pidfd_open, program, 0));
    std::array<pollfd, 2> wanted{{{end, POLLIN, 0}, {kControl, POLLIN, 0}}};
    while (poll(wanted.data(), wanted.size(), -1) < 0 && errno == EINTR) {
    }
    if (wanted[0].revents == 0) {
        kill(-program, SIGTERM);
        while (poll(wanted.data(), 1, kGraceMs) < 0 && errno == EINTR) {
        }
    }
    close(end);
}

/// The process between the station and the program. What the program leaves behind becomes its child, wherever it
/// hides, so that the guard finds and kills it.
[[noreturn]] void guard(const Launch& launch)
{
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, nullptr);
    setsid();
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    // First to numbers above those that they replace.
    std::array<int, kCount> moved{};
    for (std::size_t i = 0; i < moved.size(); ++i) {
        moved[i] = fcntl(launch.descriptors[i], F_DUPFD, 2 * kCount);
    }
    for (std::size_t i = 0; i < moved.size(); ++i) {
        dup2(moved[i], static_cast<int>(i));
    }
    // Those of other threads, too: a pipe ends when its last descriptor is closed.
    close_range(kCount, std::numeric_limits<unsigned>::max(), 0);
    fcntl(kControl, F_SETFD, FD_CLOEXEC);
    fcntl(kReport, F_SETFD, FD_CLOEXEC);

    const pid_t program = fork();
    if (program == 0) {
        execute(launch);
    }
    if (program < 0) {
        send({Report::kNotStarted, errno});
        _exit(0);
    }
    setpgid(program, program);
    for (const int each : {kInput, kOutput, kErrors}) {
        close(each);
    }
    awaitEnd(program);
    // Not reaped yet, so the number of the group still belongs to it.
    kill(-program, SIGKILL);
    for (;;) {
        killChildren();
        int status = 0;
        const pid_t ended = waitpid(-1, &status, 0);
        if (ended == program) {
            send({Report::kEnded, status});
        }
        if (ended < 0 && errno == ECHILD) {
            _exit(0);
        }
    }
}

struct Pipe {
    Pipe()
    {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe");
        }
        readEnd.reset(ends[0]);
        writeEnd.reset(ends[1]);
        fcntl(ends[0], F_SETFL, O_NONBLOCK);
    }

    host::Descriptor readEnd;
    host::Descriptor writeEnd;
};

/// @returns a file with these bytes, at its beginning.
host::Descriptor fileOf(const std::string& text)
{
    host::Descriptor file(memfd_create("input", MFD_CLOEXEC));
    if (!file.valid() || write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        lseek(file.get(), 0, SEEK_SET) != 0) {
        throw std::system_error(errno, std::generic_category(), "standard input of a program");
    }
    return file;
}

/// The station's side of one program.
class Supervisor
{
public:
    Supervisor(const std::vector<std::string>& arguments, const std::string& input) : name_(arguments.front())
    {
        const auto file = fileOf(input);
        const std::string folder = std::filesystem::path(name_).parent_path().string();
        std::vector<char*> words;
        for (const std::string& each : arguments) {
            words.push_back(const_cast<char*>(each.c_str()));
        }
        words.push_back(nullptr);
        const Launch launch{
            name_.c_str(),
            folder.c_str(),
            words.data(),
            {file.get(), out_.writeEnd.get(), err_.writeEnd.get(), control_.readEnd.get(), report_.writeEnd.get()}};
        guard_ = fork();
        if (guard_ == 0) {
            guard(launch);
        }
        if (guard_ < 0) {
            throw std::system_error(errno, std::generic_category(), name_);
        }
        for (Pipe* const each : {&out_, &err_, &report_}) {
            each->writeEnd.reset();
        }
        control_.readEnd.reset();
    }

    ~Supervisor()
    {
        end();
        // A guard that hangs is left to the end of this process.
        waitpid(guard_, nullptr, report_.readEnd.valid() ? WNOHANG : 0);
    }

    Supervisor(const Supervisor&) = delete;
    Supervisor& operator=(const Supervisor&) = delete;

    ProgramEnd run(std::chrono::nanoseconds timeout, const Interrupt& interrupt)
    {
        auto deadline = Clock::now() + timeout;
        bool interrupted = false;
        const auto kill = [&] {
            end();
            deadline = Clock::now() + kKillPatience;
        };
        while (report_.readEnd.valid()) {
            // Once the program is being killed, a request to end it changes nothing.
            const bool ending = !control_.writeEnd.valid();
            std::array<pollfd, 4> wanted{{{out_.readEnd.get(), POLLIN, 0},
                                          {err_.readEnd.get(), POLLIN, 0},
                                          {report_.readEnd.get(), POLLIN, 0},
                                          {ending ? -1 : interrupt.descriptor(), POLLIN, 0}}};
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
            poll(wanted.data(), wanted.size(), static_cast<int>(std::clamp<std::int64_t>(left, 0, 3'600'000)));
            read();
            if (!ending && wanted[3].revents != 0) {
                interrupted = true;
                kill();
            } else if (!ending && end_.out.size() > kMostOutput) {
                end_.how = ProgramEnd::How::kTooMuch;
                kill();
            } else if (Clock::now() >= deadline) {
                if (ending) {
                    throw protocol::LineError(name_ + ": cannot be killed", protocol::kError);
                }
                end_.how = ProgramEnd::How::kTimedOut;
                kill();
            }
        }
        read();
        if (interrupted) {
            throw Interrupted();
        }
        if (startError_ != 0) {
            throw protocol::LineError(
                fmt::format("{}: cannot be started: {}", name_,
                            startError_ == ENOEXEC ? "expected a program, or a script with #! in its first line"
                                                   : std::generic_category().message(startError_)),
                protocol::kError);
        }
        end_.out.resize(std::min(end_.out.size(), kMostOutput));
        return std::move(end_);
    }

private:
    /// Has the guard end everything.
    void end() { control_.writeEnd.reset(); }

    /// Reads what is there. Drops what is too much.
    void read()
    {
        drain(out_, [this](std::string_view text) {
            end_.out += text.substr(0, kMostOutput + 1 - std::min(end_.out.size(), kMostOutput + 1));
        });
        drain(err_, [this](std::string_view text) {
            end_.err += text;
            end_.err.erase(0, end_.err.size() - std::min(end_.err.size(), kKeptErrors));
        });
        Report report;
        while (take(report_, &report, sizeof report) == sizeof report) {
            note(report);
        }
    }

    template <class Use>
    static void drain(Pipe& from, Use use)
    {
        // More than a pipe holds; the loop ends with a program that never falls silent.
        constexpr int kReads = 128;
        std::array<char, 16384> chunk;
        ssize_t count = 0;
        for (int i = 0; i < kReads && (count = take(from, chunk.data(), chunk.size())) > 0; ++i) {
            use(std::string_view(chunk.data(), static_cast<std::size_t>(count)));
        }
    }

    /// @returns how many bytes were read; 0 or less if there are none. Closes a pipe that has ended.
    static ssize_t take(Pipe& from, void* to, std::size_t most)
    {
        if (!from.readEnd.valid()) {
            return 0;
        }
        const ssize_t count = ::read(from.readEnd.get(), to, most);
        if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) {
            from.readEnd.reset();
        }
        return count;
    }

    void note(Report report)
    {
        if (report.what == Report::kNotStarted) {
            startError_ = report.value;
        } else if (end_.how == ProgramEnd::How::kExited) {
            end_.how = WIFSIGNALED(report.value) ? ProgramEnd::How::kSignalled : ProgramEnd::How::kExited;
            end_.status = WIFSIGNALED(report.value) ? WTERMSIG(report.value) : WEXITSTATUS(report.value);
        }
    }

    const std::string name_;
    Pipe out_;
    Pipe err_;
    Pipe control_;
    Pipe report_;
    pid_t guard_ = -1;
    ProgramEnd end_;
    int startError_ = 0;
};

}  // namespace

ProgramEnd runProgram(const std::vector<std::string>& arguments, const std::string& input,
                      std::chrono::nanoseconds timeout, const Interrupt& interrupt)
{
    return Supervisor(arguments, input).run(timeout, interrupt);
}

}  // namespace station::instrument
