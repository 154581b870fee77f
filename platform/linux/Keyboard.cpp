#include "platform/linux/Keyboard.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <system_error>
#include <utility>

namespace unit {
namespace {

constexpr std::chrono::seconds kRetryKeyboard{1};
constexpr std::size_t kManyEvents = 64 * sizeof(input_event);

}  // namespace

Keyboard::Keyboard(std::string device, Loop& loop, StatusBoard& board, Released released)
    : device_(std::move(device)), loop_(loop), board_(board), released_(std::move(released))
{
    loop_.post([this] { open(); });
}

void Keyboard::open()
{
    retry_.reset();
    descriptor_.reset(::open(device_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!descriptor_.valid()) {
        const int error = errno;
        lost(std::generic_category().message(error) +
             (error == EACCES ? "; the user needs the group 'input'" : "; /proc/bus/input/devices lists the devices"));
        return;
    }
    // A correction of the wall clock would change how long a key was held. A pipe has no clock.
    int clock = CLOCK_MONOTONIC;
    ioctl(descriptor_.get(), EVIOCSCLOCKID, &clock);
    readable_ = loop_.whenReadable(descriptor_.get(), [this] { read(); });
    board_.set("keyboard", State::kUp);
}

void Keyboard::read()
{
    std::array<char, kManyEvents> bytes;
    const ssize_t size = ::read(descriptor_.get(), bytes.data(), bytes.size());
    if (size > 0) {
        take({bytes.data(), static_cast<std::size_t>(size)});
    } else if (size == 0 || (errno != EAGAIN && errno != EINTR)) {
        lost(size == 0 ? "the device has gone" : std::generic_category().message(errno));
    }
}

void Keyboard::lost(const std::string& reason)
{
    readable_.reset();
    descriptor_.reset();
    received_.clear();
    pressed_.clear();
    skips_ = false;
    board_.set("keyboard", State::kAbsent, fmt::format("{}: {}", device_, reason));
    retry_ = loop_.after(kRetryKeyboard, [this] { open(); });
}

void Keyboard::take(std::string_view bytes)
{
    received_ += bytes;
    std::size_t begin = 0;
    for (input_event event{}; received_.size() - begin >= sizeof event; begin += sizeof event) {
        std::memcpy(&event, received_.data() + begin, sizeof event);
        const std::chrono::microseconds now =
            std::chrono::seconds(event.input_event_sec) + std::chrono::microseconds(event.input_event_usec);
        if (event.type == EV_SYN && event.code == SYN_DROPPED) {
            pressed_.clear();  // a release may be among the lost events
            skips_ = true;     // the rest of a report whose beginning is lost
        } else if (event.type == EV_SYN && event.code == SYN_REPORT) {
            skips_ = false;
        } else if (skips_) {
            continue;
        } else if (event.type == EV_KEY && event.value == 1) {
            pressed_[event.code] = now;
        } else if (event.type == EV_KEY && event.value == 0) {
            if (const auto key = pressed_.extract(event.code); !key.empty()) {
                released_(event.code, now - key.mapped());
            }
        }
    }
    received_.erase(0, begin);
}

}  // namespace unit
