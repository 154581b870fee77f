#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <cerrno>
#include <system_error>

#include "host/Baud.h"
#include "platform/runtime/Terminal.h"

// termios directly, and not libserialport: that finds a port by what sysfs lists, and so refuses the pseudo-terminals
// of virtual null modems and the links by which udev names an adapter however it is plugged in (/dev/serial/by-id).

namespace runtime {
namespace {

[[noreturn]] void refuseDevice(const std::filesystem::path& path, const std::string& reason)
{
    throw TerminalError(path.string() + " cannot be opened as the station's line: " + reason);
}

[[noreturn]] void refuseDevice(const std::filesystem::path& path)
{
    // EBUSY: another process has made it its own with TIOCEXCL. EWOULDBLOCK: with flock().
    if (errno == EBUSY || errno == EWOULDBLOCK) {
        refuseDevice(path, "another process is using it");
    }
    if (errno == ENOTTY) {
        refuseDevice(path, "it is no terminal");
    }
    refuseDevice(path, std::generic_category().message(errno));
}

void claim(const std::filesystem::path& path, int descriptor)
{
    // Both, because root's open() passes TIOCEXCL by, and programs that know nothing of flock() heed TIOCEXCL.
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
    // At once, and without discarding what the station has sent already.
    if (tcsetattr(descriptor, TCSANOW, &settings) != 0) {
        refuseDevice(path);
    }
}

/// The mark of TIOCEXCL stays as long as anybody has the terminal open, so it has to be taken off.
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
    // Non-blocking, so that neither a modem without carrier nor a pipe without a writer holds us up.
    auto opened = std::make_unique<host::Descriptor>(::open(path_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (!opened->valid()) {
        refuseDevice(path_);
    }
    if (isatty(opened->get()) == 0) {
        refuseDevice(path_, "it is no terminal");
    }
    claim(path_, opened->get());
    std::shared_ptr<const host::Descriptor> line(opened.release(), release);
    configure(path_, line->get(), *host::speedOf(baud_));
    return line;
}

}  // namespace runtime
