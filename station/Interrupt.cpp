#include "station/Interrupt.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <system_error>

namespace station {

struct Interrupt::State {
    std::atomic<bool> requested = false;
    int descriptor = -1;

    // Anything else would not be safe in a signal handler.
    static_assert(std::atomic<bool>::is_always_lock_free);
};

Interrupt::Interrupt() : state_(std::make_unique<State>())
{
    state_->descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (state_->descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "cannot make an event descriptor");
    }
}

Interrupt::~Interrupt()
{
    close(state_->descriptor);
}

void Interrupt::request() noexcept
{
    const int error = errno;
    state_->requested = true;
    const std::uint64_t one = 1;
    // It fails only when the counter is full: then the descriptor is readable already.
    [[maybe_unused]] const ssize_t written = write(state_->descriptor, &one, sizeof one);
    errno = error;
}

void Interrupt::clear() noexcept
{
    state_->requested = false;
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t got = read(state_->descriptor, &count, sizeof count);
}

bool Interrupt::requested() const noexcept
{
    return state_->requested;
}

int Interrupt::descriptor() const noexcept
{
    return state_->descriptor;
}

}  // namespace station
