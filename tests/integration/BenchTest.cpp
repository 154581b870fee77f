#include "tests/integration/BenchTest.h"

#include <gmock/gmock.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace tests {

using testing::IsEmpty;

namespace {

/// @returns the options that a variable holds, ready to be followed by another.
std::string optionsOf(const char* variable)
{
    const char* options = std::getenv(variable);
    return options == nullptr ? "" : std::string(options) + ":";
}

}  // namespace

void RawLine::write(const std::vector<std::uint8_t>& bytes)
{
    link_.write(bytes, station::SerialLink::Clock::now() + kGenerous);
}

std::vector<std::uint8_t> RawLine::read(std::size_t count, std::chrono::nanoseconds timeout)
{
    const auto deadline = station::SerialLink::Clock::now() + timeout;
    std::vector<std::uint8_t> bytes(count);
    std::size_t have = 0;
    while (have < count) {
        const std::size_t got = link_.read(std::span(bytes).subspan(have), deadline);
        if (got == 0) {
            break;
        }
        have += got;
    }
    bytes.resize(have);
    return bytes;
}

void RawLine::expectExchange(const std::vector<std::uint8_t>& request, const std::vector<std::uint8_t>& reply)
{
    write(request);
    EXPECT_EQ(read(reply.size()), reply);
}

BenchTest::BenchTest()
{
    std::filesystem::create_directory(directory() / "run");
    std::filesystem::permissions(directory() / "run", std::filesystem::perms::owner_all);
    environment_ = {
        {"DBUS_SESSION_BUS_ADDRESS", bus_.address()},
        {"XDG_RUNTIME_DIR", (directory() / "run").string()},
        // The registry of whoever runs the tests gives nothing to units of a bench.
        {"XDG_STATE_HOME", (directory() / "state").string()},
        {"ENGINEERING_STATION", std::nullopt},
        {"DISPLAY", std::nullopt},
        {"NOTIFY_SOCKET", std::nullopt},
        // By itself ThreadSanitizer makes a program linger for a second when it ends.
        {"TSAN_OPTIONS", optionsOf("TSAN_OPTIONS") + "atexit_sleep_ms=0"},
    };
}

BenchTest::~BenchTest() = default;

void BenchTest::TearDown()
{
    for (const auto& process : processes_) {
        if (const auto ended = process->wait(std::chrono::nanoseconds(0)); !ended) {
            process->signal(SIGTERM);
            EXPECT_EQ(process->wait(), 0) << process->output(ChildProcess::Stream::kErr);
        }
        EXPECT_THAT(sanitizerReport(process->output(ChildProcess::Stream::kErr)), IsEmpty())
            << process->output(ChildProcess::Stream::kErr);
    }
}

ChildProcess& BenchTest::start(const std::vector<std::string>& arguments)
{
    processes_.push_back(std::make_unique<ChildProcess>(arguments, environment_));
    return *processes_.back();
}

Outcome BenchTest::run(const std::vector<std::string>& arguments)
{
    const Outcome outcome = tests::run(arguments, environment_);
    EXPECT_THAT(sanitizerReport(outcome.err), IsEmpty()) << outcome.err;
    return outcome;
}

ChildProcess& BenchTest::startService(const std::vector<std::string>& arguments)
{
    std::vector<std::string> all{ENGINEERING_SERVICE, "--root", root().string()};
    all.insert(all.end(), arguments.begin(), arguments.end());
    ChildProcess& service = start(all);
    if (!service.waitForLine(ChildProcess::Stream::kErr, "ready uart=")) {
        throw std::runtime_error("the service did not get ready: " + service.output(ChildProcess::Stream::kErr));
    }
    return service;
}

void BenchTest::expectEnd(ChildProcess& process, int status)
{
    EXPECT_EQ(process.wait(), status) << process.output(ChildProcess::Stream::kErr);
}

void BenchTest::hideBus()
{
    environment_["DBUS_SESSION_BUS_ADDRESS"] = std::nullopt;
}

std::pair<std::string, int> runOnTerminal(const std::vector<std::string>& arguments,
                                          const ChildProcess::Environment& environment, const std::string& typed)
{
    int master = -1;
    winsize size{24, 80, 0, 0};
    std::vector<char*> argv;
    const auto words = throughEmulator(arguments);
    for (const auto& word : words) {
        argv.push_back(const_cast<char*>(word.c_str()));
    }
    argv.push_back(nullptr);
    const pid_t child = forkpty(&master, nullptr, nullptr, &size);
    if (child == 0) {
        for (const auto& [name, value] : environment) {
            value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
        }
        execv(argv[0], argv.data());
        _exit(127);
    }
    std::string text;
    constexpr std::string_view kQuestion = "[y/n]";
    std::size_t shown = 0;  // up to here questions have been answered
    std::size_t begin = 0;  // of the line that is typed next
    std::array<char, 1024> chunk;
    for (ssize_t count = 0; (count = read(master, chunk.data(), chunk.size())) > 0;) {
        text.append(chunk.data(), static_cast<std::size_t>(count));
        if (const auto question = text.find(kQuestion, shown); question != std::string::npos && begin < typed.size()) {
            const std::size_t end = std::min(typed.find('\n', begin), typed.size() - 1) + 1;
            EXPECT_EQ(write(master, typed.data() + begin, end - begin), static_cast<ssize_t>(end - begin));
            shown = question + kQuestion.size();
            begin = end;
        }
    }
    int status = -1;
    waitpid(child, &status, 0);
    close(master);
    return {text, WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status)};
}

std::vector<std::string> linesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

}  // namespace tests
