#pragma once

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>
#include <utility>

namespace host {

/// Owns a file descriptor.
class Descriptor
{
public:
    Descriptor() = default;

    /// @param descriptor -1 for none
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor&& other) noexcept : descriptor_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        reset(other.release());
        return *this;
    }

    int get() const { return descriptor_; }
    bool valid() const { return descriptor_ >= 0; }

    /// Gives the descriptor to the caller.
    int release() { return std::exchange(descriptor_, -1); }

    /// Closes the descriptor and owns another one instead. Leaves errno as it is.
    void reset(int descriptor = -1)
    {
        const int error = errno;
        if (const int old = std::exchange(descriptor_, descriptor); old >= 0) {
            close(old);
        }
        errno = error;
    }

private:
    int descriptor_ = -1;
};

/// Wakes a poll(), from any thread. Stays signalled until it is cleared.
class Wakeup
{
public:
    Wakeup() : event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
    {
        if (!event_.valid()) {
            throw std::system_error(errno, std::generic_category(), "eventfd");
        }
    }

    int descriptor() const { return event_.get(); }

    // Failures do not matter here: a full counter wakes, an empty one is clear.
    void signal() const { static_cast<void>(!eventfd_write(event_.get(), 1)); }
    void clear() const
    {
        eventfd_t count = 0;
        static_cast<void>(!eventfd_read(event_.get(), &count));
    }

private:
    Descriptor event_;
};

}  // namespace host
