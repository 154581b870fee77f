#pragma once

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace tests {

/// The head unit's end of a pseudo-terminal, for tests: reads and writes when it is told to.
class PtyPeer
{
public:
    PtyPeer()
    {
        std::array<char, 128> name{};
        if (openpty(&master_, &slave_, name.data(), nullptr, nullptr) != 0) {
            throw std::runtime_error("no pseudo-terminal can be had");
        }
        // A program that the test starts must not keep the line open.
        fcntl(master_, F_SETFD, FD_CLOEXEC);
        fcntl(slave_, F_SETFD, FD_CLOEXEC);
        path_ = name.data();
        // A program that the test starts must not keep the line open.
        for (const int descriptor : {master_, slave_}) {
            fcntl(descriptor, F_SETFD, FD_CLOEXEC);
        }
        termios raw{};
        tcgetattr(slave_, &raw);
        cfmakeraw(&raw);
        tcsetattr(slave_, TCSANOW, &raw);
    }

    ~PtyPeer()
    {
        hangUp();
        close(slave_);
    }

    PtyPeer(const PtyPeer&) = delete;
    PtyPeer& operator=(const PtyPeer&) = delete;

    const std::string& path() const { return path_; }

    void write(const std::vector<std::uint8_t>& bytes)
    {
        if (::write(master_, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
            throw std::runtime_error("the pseudo-terminal took less than it was given");
        }
    }

    /// @returns `count` bytes, fewer when they have not come after 20 s.
    std::vector<std::uint8_t> read(std::size_t count)
    {
        std::vector<std::uint8_t> bytes;
        pollfd request{master_, POLLIN, 0};
        while (bytes.size() < count && poll(&request, 1, 20'000) > 0) {
            std::array<std::uint8_t, 256> chunk;
            const ssize_t got = ::read(master_, chunk.data(), std::min(chunk.size(), count - bytes.size()));
            if (got <= 0) {
                break;
            }
            bytes.insert(bytes.end(), chunk.begin(), chunk.begin() + got);
        }
        return bytes;
    }

    /// Waits until the station's end has `count` bytes to read: a pseudo-terminal passes them on a little later.
    void waitUntilArrived(int count)
    {
        pollfd request{slave_, POLLIN, 0};
        int arrived = 0;
        while (arrived < count && poll(&request, 1, 20'000) > 0) {
            ioctl(slave_, FIONREAD, &arrived);
        }
    }

    /// Waits until whoever has the station's end has read all there is.
    void waitUntilTaken()
    {
        for (int left = 1; left > 0;) {
            ioctl(slave_, FIONREAD, &left);
        }
    }

    /// Closes the head unit's end.
    void hangUp()
    {
        if (master_ >= 0) {
            close(master_);
            master_ = -1;
        }
    }

private:
    int master_ = -1;
    int slave_ = -1;  // kept open, so that bytes survive a station that comes later or again
    std::string path_;
};

}  // namespace tests
