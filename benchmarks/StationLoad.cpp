#include "benchmarks/StationLoad.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "tests/support/PtyPeer.h"

namespace benchmarks {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kPatienceMs = 5000;
constexpr int kQuietMs = 200;

double microsecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

void makeRaw(int terminal)
{
    termios settings{};
    if (tcgetattr(terminal, &settings) != 0) {
        throw std::runtime_error("the line is not a terminal");
    }
    cfmakeraw(&settings);
    tcsetattr(terminal, TCSANOW, &settings);
}

[[noreturn]] void answer(int line, std::size_t requestSize, std::size_t replySize)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const std::vector<std::uint8_t> reply(replySize, 0x55);
    std::array<std::uint8_t, 4096> buffer;
    std::size_t pending = 0;
    for (;;) {
        pollfd polled{line, POLLIN, 0};
        poll(&polled, 1, -1);
        const ssize_t got = ::read(line, buffer.data(), buffer.size());
        if (got <= 0) {
            _exit(1);
        }
        for (pending += static_cast<std::size_t>(got); pending >= requestSize; pending -= requestSize) {
            if (::write(line, reply.data(), reply.size()) != static_cast<ssize_t>(reply.size())) {
                _exit(1);
            }
        }
    }
}

}  // namespace

StationLoad::StationLoad(const std::string& path, pid_t pid) : line_(open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC))
{
    if (line_ < 0) {
        throw std::runtime_error("the line " + path + " cannot be opened");
    }
    makeRaw(line_);
    if (clock_getcpuclockid(pid, &clock_) != 0) {
        throw std::runtime_error("there is no process " + std::to_string(pid));
    }
}

StationLoad::~StationLoad()
{
    close(line_);
}

void StationLoad::sendAndDrain(const Bytes& bytes)
{
    write(bytes.data(), bytes.size());
    std::array<std::uint8_t, 4096> buffer;
    pollfd polled{line_, POLLIN, 0};
    while (poll(&polled, 1, kQuietMs) > 0 && ::read(line_, buffer.data(), buffer.size()) > 0) {
    }
}

StationLoad::Latency StationLoad::roundTrip(const Bytes& request, std::size_t replySize, int count)
{
    std::vector<double> took;
    for (int i = 0; i < count; ++i) {
        const auto start = Clock::now();
        write(request.data(), request.size());
        read(replySize);
        took.push_back(microsecondsSince(start));
    }
    std::ranges::sort(took);
    const auto at = [&](double share) {
        return took[static_cast<std::size_t>(share * static_cast<double>(took.size() - 1))];
    };
    return {at(0.50), at(0.99)};
}

double StationLoad::window(const Bytes& request, std::size_t replySize, int count, std::size_t mostUnderWay)
{
    Bytes requests;
    for (std::size_t i = 0; i < mostUnderWay; ++i) {
        requests.insert(requests.end(), request.begin(), request.end());
    }
    const auto total = static_cast<std::size_t>(count);
    std::size_t sent = 0;
    std::size_t received = 0;  // bytes
    const auto start = Clock::now();
    while (received < total * replySize) {
        // Half a window at a time, so that the station does not limit the result.
        const std::size_t room = std::min(mostUnderWay - (sent - received / replySize), total - sent);
        if (room >= mostUnderWay / 2 || (room > 0 && sent + room == total)) {
            write(requests.data(), room * request.size());
            sent += room;
        }
        std::array<std::uint8_t, 4096> buffer;
        pollfd polled{line_, POLLIN, 0};
        if (poll(&polled, 1, kPatienceMs) <= 0) {
            throw std::runtime_error("no reply in time");
        }
        const ssize_t got = ::read(line_, buffer.data(), buffer.size());
        if (got <= 0) {
            throw std::runtime_error("the line was closed");
        }
        received += static_cast<std::size_t>(got);
    }
    return static_cast<double>(count) * 1e3 / microsecondsSince(start);
}

double StationLoad::pacedCpuUs(const Bytes& request, std::size_t replySize, int count)
{
    const double before = cpuSeconds();
    auto due = Clock::now();
    for (int i = 0; i < count; ++i) {
        write(request.data(), request.size());
        read(replySize);
        due += std::chrono::milliseconds(1);
        std::this_thread::sleep_until(due);
    }
    return (cpuSeconds() - before) * 1e6 / count;
}

void StationLoad::write(const std::uint8_t* bytes, std::size_t size) const
{
    while (size > 0) {
        const ssize_t written = ::write(line_, bytes, size);
        if (written <= 0) {
            throw std::runtime_error("the line takes nothing");
        }
        bytes += written;
        size -= static_cast<std::size_t>(written);
    }
}

void StationLoad::read(std::size_t size) const
{
    std::array<std::uint8_t, 4096> buffer;
    while (size > 0) {
        pollfd polled{line_, POLLIN, 0};
        if (poll(&polled, 1, kPatienceMs) <= 0) {
            throw std::runtime_error("no reply in time");
        }
        const ssize_t got = ::read(line_, buffer.data(), std::min(size, buffer.size()));
        if (got <= 0) {
            throw std::runtime_error("the line was closed");
        }
        size -= static_cast<std::size_t>(got);
    }
}

double StationLoad::cpuSeconds() const
{
    timespec time{};
    clock_gettime(clock_, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

Echo::Echo(std::size_t requestSize, std::size_t replySize)
{
    const tests::PtyPeer peer;
    path_ = peer.path();
    pid_ = fork();
    if (pid_ == 0) {
        answer(peer.descriptor(), requestSize, replySize);  // also keeps the station's end open
    }
}

Echo::~Echo()
{
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
}

}  // namespace benchmarks
