#include "platform/runtime/OutputPump.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <system_error>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#include <sanitizer/common_interface_defs.h>
#define ENGINEERING_SANITIZED
#endif
#endif

namespace runtime {
namespace {

/// The most that an unprivileged process may ask for. With a smaller pipe, the pump drops more.
constexpr int kPipeSize = 1 << 20;

bool isRegularFile(int descriptor)
{
    struct stat status = {};
    return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

[[noreturn]] void fail(const char* what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

OutputPump::OutputPump(int descriptor)
    : descriptor_(descriptor), original_(fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1))
{
    if (!original_.valid()) {
        fail("output descriptor");
    }
    if (isRegularFile(descriptor)) {
        return;
    }
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        fail("pipe");
    }
    pipe_.reset(ends[0]);
    const host::Descriptor written(ends[1]);
    fcntl(written.get(), F_SETFL, O_NONBLOCK);
    fcntl(written.get(), F_SETPIPE_SZ, kPipeSize);
    thread_ = std::thread([this] { run(); });
    dup2(written.get(), descriptor_);
#ifdef ENGINEERING_SANITIZED
    if (descriptor_ == STDERR_FILENO)
        __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<std::intptr_t>(original_.get())));
#endif
}

OutputPump::~OutputPump()
{
    stop();
}

void OutputPump::stop()
{
    if (!thread_.joinable()) {
        return;
    }
    // This closes the last write end, so the thread reads what is left and then the end of the pipe.
    dup2(original_.get(), descriptor_);
    thread_.join();
}

void OutputPump::run() const
{
    std::array<char, 4096> chunk;
    for (;;) {
        const ssize_t count = read(pipe_.get(), chunk.data(), chunk.size());
        if (count > 0) {
            passOn(chunk.data(), static_cast<std::size_t>(count));
        } else if (count == 0 || errno != EINTR) {
            return;
        }
    }
}

/// Drops the data if the reader is gone.
void OutputPump::passOn(const char* data, std::size_t size) const
{
    while (size > 0) {
        const ssize_t count = write(original_.get(), data, size);
        if (count > 0) {
            data += count;
            size -= static_cast<std::size_t>(count);
        } else if (errno == EAGAIN) {
            pollfd polled{original_.get(), POLLOUT, 0};
            poll(&polled, 1, -1);
        } else if (errno != EINTR) {
            return;
        }
    }
}

}  // namespace runtime
