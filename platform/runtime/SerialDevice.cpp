#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <cerrno>
#include <system_error>

#include "host/Baud.h"
#include "platform/runtime/Terminal.h"

// termios and not libserialport: that library finds ports through sysfs, so it refuses the pseudo-terminals of virtual
// null modems and the stable names that udev gives to adapters (/dev/serial/by-id).

namespace runtime {
namespace {

[[noreturn]] void refuseDevice(const std::filesystem::path& path, const std::string& reason)
{
    throw TerminalError("--uart " + path.string() + ": " + reason);
}

[[noreturn]] void refuseDevice(const std::filesystem::path& path)
{
    // EBUSY: another process holds TIOCEXCL. EWOULDBLOCK: another process holds flock().
    if (errno == EBUSY || errno == EWOULDBLOCK) {
        refuseDevice(path, "another process uses it");
    }
    if (errno == ENOTTY) {
        refuseDevice(path, "expected a serial device, got another file");
    }
    refuseDevice(path, "cannot open: " + std::generic_category().message(errno));
}

void claim(const std::filesystem::path& path, int descriptor)
{
    // Both: TIOCEXCL does not stop root, and not every program uses flock().
    if (flock(descriptor, LOCK_EX | LOCK_NB) != 0 || ioctl(descriptor, TIOCEXCL) != 0) {
        refuseDevice(path);
    }
}

void configure(const std::filesystem::path& path, int descriptor, speed_t speed)
{
    termios settings{};
    if (tcgetattr(descriptor, &settings) != 0) {
        refuseDevice(path);
    }
    cfmakeraw(&settings);
    settings.c_cflag &= ~static_cast<tcflag_t>(CSTOPB | CRTSCTS);
    settings.c_cflag |= CLOCAL | CREAD;
    settings.c_iflag &= ~static_cast<tcflag_t>(IXOFF | IXANY);
    cfsetispeed(&settings, speed);
    cfsetospeed(&settings, speed);
    // TCSANOW keeps what the station has already sent.
    if (tcsetattr(descriptor, TCSANOW, &settings) != 0) {
        refuseDevice(path);
    }
}

/// TIOCEXCL lasts until the last process closes the terminal, so it has to be removed.
void release(const host::Descriptor* line)
{
    ioctl(line->get(), TIOCNXCL);
    delete line;
}

}  // namespace

SerialDevice::SerialDevice(const std::filesystem::path& path, unsigned baud)
    : path_(std::filesystem::absolute(path).lexically_normal()), baud_(baud)
{
}

std::shared_ptr<const host::Descriptor> SerialDevice::open()
{
    // Non-blocking: a modem without a carrier or a pipe without a writer must not block.
    auto opened = std::make_unique<host::Descriptor>(::open(path_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (!opened->valid()) {
        refuseDevice(path_);
    }
    if (isatty(opened->get()) == 0) {
        refuseDevice(path_, "expected a serial device, got another file");
    }
    claim(path_, opened->get());
    std::shared_ptr<const host::Descriptor> line(opened.release(), release);
    configure(path_, line->get(), *host::speedOf(baud_));
    return line;
}

}  // namespace runtime
