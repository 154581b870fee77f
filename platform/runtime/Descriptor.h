#pragma once

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace runtime {

/// Owns a file descriptor.
class Descriptor
{
public:
    /// @param descriptor -1 for none
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    ~Descriptor()
    {
        if (descriptor_ >= 0)
            close(descriptor_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return descriptor_; }
    bool valid() const { return descriptor_ >= 0; }

private:
    const int descriptor_;
};

/// Something that a poll() can be woken by, from any thread. Stays signalled until it is cleared.
class Wakeup
{
public:
    Wakeup() : event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
    {
        if (!event_.valid())
            throw std::system_error(errno, std::generic_category(), "eventfd");
    }

    int descriptor() const { return event_.get(); }

    // Neither can fail in a way that matters: a counter that is full wakes, one that is empty is clear.
    void signal() const { static_cast<void>(!eventfd_write(event_.get(), 1)); }
    void clear() const
    {
        eventfd_t count = 0;
        static_cast<void>(!eventfd_read(event_.get(), &count));
    }

private:
    Descriptor event_;
};

}  // namespace runtime
