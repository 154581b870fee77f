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

#include "host/Descriptor.h"

namespace tests {

/// The head unit's end of a pseudo-terminal, for tests: reads and writes on request.
class PtyPeer
{
public:
    PtyPeer()
    {
        std::array<char, 128> name{};
        int master = -1;
        int slave = -1;
        if (openpty(&master, &slave, name.data(), nullptr, nullptr) != 0) {
            throw std::runtime_error("no pseudo-terminal can be had");
        }
        master_.reset(master);
        slave_.reset(slave);
        path_ = name.data();
        // A program that the test starts must not keep the line open.
        for (const int descriptor : {master, slave}) {
            fcntl(descriptor, F_SETFD, FD_CLOEXEC);
        }
        termios raw{};
        tcgetattr(slave, &raw);
        cfmakeraw(&raw);
        tcsetattr(slave, TCSANOW, &raw);
    }

    const std::string& path() const { return path_; }

    /// The head unit's end.
    int descriptor() const { return master_.get(); }

    void write(const std::vector<std::uint8_t>& bytes)
    {
        if (::write(master_.get(), bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
            throw std::runtime_error("the pseudo-terminal took less than it was given");
        }
    }

    /// @returns `count` bytes, fewer if they do not come within 20 s.
    std::vector<std::uint8_t> read(std::size_t count)
    {
        std::vector<std::uint8_t> bytes;
        pollfd request{master_.get(), POLLIN, 0};
        while (bytes.size() < count && poll(&request, 1, 20'000) > 0) {
            std::array<std::uint8_t, 256> chunk;
            const ssize_t got = ::read(master_.get(), chunk.data(), std::min(chunk.size(), count - bytes.size()));
            if (got <= 0) {
                break;
            }
            bytes.insert(bytes.end(), chunk.begin(), chunk.begin() + got);
        }
        return bytes;
    }

    /// Waits until `count` bytes are readable at the station's end: a pseudo-terminal delivers with a delay.
    void waitUntilArrived(int count)
    {
        pollfd request{slave_.get(), POLLIN, 0};
        int arrived = 0;
        while (arrived < count && poll(&request, 1, 20'000) > 0) {
            ioctl(slave_.get(), FIONREAD, &arrived);
        }
    }

    /// Waits until all bytes have been read at the station's end.
    void waitUntilTaken()
    {
        for (int left = 1; left > 0;) {
            ioctl(slave_.get(), FIONREAD, &left);
        }
    }

    /// Closes the head unit's end.
    void hangUp() { master_.reset(); }

private:
    host::Descriptor master_;
    host::Descriptor slave_;  // open, so that bytes survive until a station comes, or comes again
    std::string path_;
};

}  // namespace tests
