#include "platform/linux/Keyboard.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <gio/gunixinputstream.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "protocol/Text.h"

namespace unit {
namespace {

constexpr std::chrono::seconds kRetryKeyboard{1};
constexpr gsize kManyEvents = 64 * sizeof(input_event);

}  // namespace

Keyboard::Keyboard(std::string device, Loop& loop, StatusBoard& board, Released released)
    : device_(std::move(device)), loop_(loop), board_(board), released_(std::move(released))
{
    loop_.post([this] { open(); });
}

void Keyboard::open()
{
    retry_.reset();
    const int descriptor = ::open(device_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) {
        const int error = errno;
        lost(std::generic_category().message(error) +
             (error == EACCES ? "; the user needs the group 'input'" : "; /proc/bus/input/devices lists the devices"));
        return;
    }
    stream_.reset(g_unix_input_stream_new(descriptor, TRUE));
    board_.set("keyboard", State::kUp);
    read();
}

void Keyboard::read()
{
    g_input_stream_read_bytes_async(
        stream_.get(), kManyEvents, G_PRIORITY_DEFAULT, loop_.cancellable(), Loop::complete,
        loop_.expect([this](GObject* source, GAsyncResult* result) {
            host::GlibError error;
            GBytes* const bytes = g_input_stream_read_bytes_finish(G_INPUT_STREAM(source), result, error.out());
            if (error.is(G_IO_ERROR, G_IO_ERROR_CANCELLED)) {
                return;
            }
            gsize size = 0;
            const auto* const data =
                bytes == nullptr ? nullptr : static_cast<const char*>(g_bytes_get_data(bytes, &size));
            if (size > 0) {
                take({data, size});
            }
            g_bytes_unref(bytes);
            if (size == 0) {
                lost(bytes == nullptr ? protocol::printable(error.message()) : "the device has gone");
            } else {
                read();
            }
        }));
}

void Keyboard::lost(const std::string& reason)
{
    stream_.reset();
    received_.clear();
    pressed_.clear();
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
