#include "station/SerialLink.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "host/Baud.h"
#include "station/PortUsers.h"

namespace station {

namespace {

using FileStatus = struct stat;

/// The text without the system's reason, where that only repeats it.
class SerialError : public std::system_error
{
public:
    SerialError(int error, std::string text) : std::system_error(error, std::generic_category()), text_(std::move(text))
    {
    }
    const char* what() const noexcept override { return text_.c_str(); }

private:
    std::string text_;
};

timespec timeLeft(SerialLink::Clock::time_point deadline)
{
    const auto left = std::clamp<std::chrono::nanoseconds>(deadline - SerialLink::Clock::now(),
                                                           std::chrono::nanoseconds(0), std::chrono::hours(1));
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    return {static_cast<time_t>(seconds.count()), static_cast<long>((left - seconds).count())};
}

}  // namespace

bool SerialLink::isInOwnDirectory(const std::string& path)
{
    FileStatus directory{};
    return lstat(std::filesystem::path(path).parent_path().c_str(), &directory) == 0 && S_ISDIR(directory.st_mode) &&
           directory.st_uid == getuid();
}

SerialLink::SerialLink(const std::string& path, unsigned baud) : SerialLink(path, baud, Options{}) {}

SerialLink::SerialLink(const std::string& path, unsigned baud, Options options)
    : path_(path)
    , interrupt_(options.interrupt)
    // Without O_NONBLOCK the opening of a device would wait for a carrier.
    , descriptor_(open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK))
{
    if (!descriptor_.valid()) {
        const int error = errno;
        const std::string user = error == EBUSY ? otherUser(path) : "";
        if (!user.empty()) {
            refuse(error, "in use by " + user);
        }
        fail(error, "cannot open");
    }
    if (options.ownOnly) {
        refuseForeign();
    }
    if (options.exclusive) {
        lock();
    }
    configure(baud);
}

SerialLink::SerialLink(host::Descriptor connection, std::string name)
    : path_(std::move(name)), descriptor_(std::move(connection))
{
}

void SerialLink::refuseForeign() const
{
    if (!isInOwnDirectory(path_)) {
        refuse(EPERM, "expected a directory of your own, got another user's");
    }
    // A link that was left behind may lead to another user, who has the terminal's number now.
    FileStatus device{};
    if (fstat(descriptor_.get(), &device) != 0 || device.st_uid != getuid()) {
        refuse(EPERM, "expected a terminal of your own, got another user's");
    }
}

void SerialLink::lock()
{
    // First of all: a station that lost the race must not have touched the winner's settings.
    if (flock(descriptor_.get(), LOCK_EX | LOCK_NB) != 0) {
        const int error = errno == EWOULDBLOCK ? EBUSY : errno;
        std::string user = lockHolder(descriptor_.get());
        if (user.empty()) {
            user = otherUser(path_);
        }
        if (!user.empty()) {
            refuse(error, "in use by " + user);
        }
        fail(error, "cannot lock");
    }
    // A pseudo-terminal keeps the flag until its other end is closed: a killed station would lock out all others until
    // the service ends.
    FileStatus file{};
    if (fstat(descriptor_.get(), &file) == 0 && !isPseudoTerminal(file.st_rdev)) {
        ioctl(descriptor_.get(), TIOCEXCL);
    }
}

void SerialLink::configure(unsigned baud)
{
    const auto speed = host::speedOf(baud);
    if (!speed) {
        refuse(EINVAL, fmt::format("expected a baud rate such as 115200, got {}", baud));
    }
    termios settings{};
    if (tcgetattr(descriptor_.get(), &settings) != 0) {
        if (errno == ENOTTY) {
            refuse(ENOTTY, "expected a serial line, got another file");
        }
        fail(errno, "cannot read the settings");
    }
    cfmakeraw(&settings);
    settings.c_cflag &= ~static_cast<tcflag_t>(CSTOPB | CRTSCTS);
    settings.c_cflag |= CLOCAL | CREAD;
    cfsetispeed(&settings, *speed);
    cfsetospeed(&settings, *speed);
    if (tcsetattr(descriptor_.get(), TCSANOW, &settings) != 0) {
        fail(errno, "cannot change the settings");
    }
}

void SerialLink::discardInput()
{
    tcflush(descriptor_.get(), TCIFLUSH);
    // The flush does not reach the bytes that a pseudo-terminal has taken from its other end and not yet passed on. It
    // holds far less than this loop reads, and the loop ends on a line that never falls silent.
    constexpr int kReads = 64;
    std::array<std::uint8_t, 4096> dropped;
    for (int i = 0; i < kReads && waitFor(POLLIN, Clock::now()) && readAvailable(dropped) > 0; ++i) {
    }
}

void SerialLink::write(protocol::Bytes bytes, Clock::time_point deadline)
{
    while (!bytes.empty()) {
        bytes = bytes.subspan(writeSome(bytes, deadline));
    }
}

std::size_t SerialLink::writeSome(protocol::Bytes bytes, Clock::time_point deadline)
{
    for (;;) {
        const ssize_t written = ::write(descriptor_.get(), bytes.data(), bytes.size());
        if (written > 0) {
            return static_cast<std::size_t>(written);
        }
        if (written < 0 && errno != EAGAIN && errno != EINTR) {
            fail(errno, "cannot write");
        }
        if (!waitFor(POLLOUT, deadline)) {
            refuse(ETIMEDOUT, "the line takes no more bytes");
        }
    }
}

std::size_t SerialLink::read(std::span<std::uint8_t> out, Clock::time_point deadline)
{
    while (waitFor(POLLIN, deadline)) {
        if (const std::size_t count = readAvailable(out); count > 0) {
            return count;
        }
    }
    return 0;
}

bool SerialLink::waitFor(short events, Clock::time_point deadline) const
{
    std::array<pollfd, 2> requests{{
        {descriptor_.get(), events, 0},
        {interrupt_ == nullptr ? -1 : interrupt_->descriptor(), POLLIN, 0},
    }};
    for (;;) {
        const timespec left = timeLeft(deadline);
        const int ready = ppoll(requests.data(), requests.size(), &left, nullptr);
        if (ready < 0 && errno != EINTR) {
            fail(errno, "cannot wait for");
        }
        if (ready > 0 && requests[1].revents != 0) {
            throw Interrupted();
        }
        if (ready > 0) {
            return true;
        }
        if (Clock::now() >= deadline) {
            return false;
        }
    }
}

std::size_t SerialLink::readAvailable(std::span<std::uint8_t> out)
{
    const ssize_t count = ::read(descriptor_.get(), out.data(), out.size());
    if (count > 0) {
        return static_cast<std::size_t>(count);
    }
    if (count == 0 || errno == EIO) {
        refuse(EIO, "the other end has closed the line");
    }
    if (errno != EAGAIN && errno != EINTR) {
        fail(errno, "cannot read");
    }
    return 0;
}

void SerialLink::fail(int error, const std::string& what) const
{
    refuse(error, fmt::format("{}: {}", what, std::generic_category().message(error)));
}

void SerialLink::refuse(int error, const std::string& what) const
{
    throw SerialError(error, fmt::format("{}: {}", path_, what));
}

}  // namespace station
