#include "platform/runtime/TtyWire.h"

#include <poll.h>
#include <pthread.h>

#include <algorithm>

#include <array>
#include <cerrno>
#include <utility>

namespace runtime {
namespace {

/// The largest chunk.
constexpr std::size_t kChunkSize = 4096;

/// How often to try a lost line.
constexpr int kRetryMs = 250;

/// The most that a Linux terminal returns in one read.
constexpr std::size_t kTerminalHolds = 4095;

enum class ReadEnd {
    kEmpty,  ///< no more bytes are available
    kFull,   ///< the buffer is full
    kLost,   ///< the line is lost
};

/// Reads the available bytes into `buffer`, as many as fit.
/// @param count in and out: number of bytes in the buffer
ReadEnd readAvailable(int line, std::span<std::uint8_t> buffer, std::size_t& count)
{
    while (count < buffer.size()) {
        const std::size_t room = buffer.size() - count;
        const ssize_t got = read(line, buffer.data() + count, room);
        if (got > 0) {
            count += static_cast<std::size_t>(got);
            // A raw terminal returns all its bytes, at most 4095. After fewer, another read would only cost time.
            if (static_cast<std::size_t>(got) < std::min(room, kTerminalHolds)) {
                return ReadEnd::kEmpty;
            }
        } else if (got == 0) {
            return ReadEnd::kLost;
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            return ReadEnd::kEmpty;
        } else if (errno != EINTR) {
            return ReadEnd::kLost;
        }
    }
    return ReadEnd::kFull;
}

}  // namespace

TtyWire::TtyWire(std::unique_ptr<Terminal> terminal, Reporter reporter)
    : terminal_(std::move(terminal))
    , reporter_(std::move(reporter))
    , name_("uart " + terminal_->path().string())
    , line_(terminal_->open())
    , writer_(name_, reporter_)
{
    writer_.open(line_);
}

TtyWire::~TtyWire()
{
    stop();
}

void TtyWire::attach(Receiver receiver)
{
    const std::lock_guard lock(mutex_);
    if (stopped_) {
        return;
    }
    detachLocked();
    wakeup_.clear();
    stopping_ = false;
    thread_ = std::thread([this, deliver = std::move(receiver)] { run(deliver); });
}

void TtyWire::beat(std::chrono::milliseconds interval, std::function<void()> alive)
{
    const std::lock_guard lock(mutex_);
    beatInterval_ = interval;
    alive_ = std::move(alive);
}

void TtyWire::detach()
{
    if (onDeliveryThread()) {
        stopping_ = true;  // the thread ends when the receiver returns
        return;
    }
    const std::lock_guard lock(mutex_);
    detachLocked();
}

void TtyWire::detachLocked()
{
    if (!thread_.joinable()) {
        return;
    }
    stopping_ = true;
    wakeup_.signal();
    thread_.join();
}

void TtyWire::stop()
{
    withdraw();
    // The writer first, so that a receiver that is sending returns.
    writer_.close();
    const std::lock_guard lock(mutex_);
    stopped_ = true;
    detachLocked();
    writer_.close();
    line_.reset();
}

void TtyWire::run(const Receiver& receiver)
{
    pthread_setname_np(pthread_self(), "uart");
    deliveryThread_ = std::this_thread::get_id();
    while (!stopping_) {
        beatIfDue();
        if (!line_) {
            recover();
        } else if (waitForInput() && !deliverChunk(receiver)) {
            lose();
        }
    }
    deliveryThread_ = std::thread::id();
}

void TtyWire::beatIfDue()
{
    const auto now = std::chrono::steady_clock::now();
    if (alive_ && now - lastBeat_ >= beatInterval_) {
        lastBeat_ = now;
        alive_();
    }
}

/// @returns whether the line has bytes to read or has ended.
bool TtyWire::waitForInput()
{
    std::array<pollfd, 2> polled{{{wakeup_.descriptor(), POLLIN, 0}, {line_->get(), POLLIN, 0}}};
    int patience = -1;
    if (alive_) {
        // Rounded up: less than a millisecond would not be waited for at all.
        const auto left = lastBeat_ + beatInterval_ - std::chrono::steady_clock::now();
        patience = static_cast<int>(
            std::max(std::chrono::ceil<std::chrono::milliseconds>(left), std::chrono::milliseconds::zero()).count());
    }
    poll(polled.data(), polled.size(), patience);
    return !stopping_ && polled[1].revents != 0;
}

/// @returns whether the line is still there.
bool TtyWire::deliverChunk(const Receiver& receiver)
{
    std::array<std::uint8_t, kChunkSize> buffer;
    std::size_t count = 0;
    const ReadEnd end = readAvailable(line_->get(), buffer, count);
    if (count > 0) {
        receiver(std::span(buffer).first(count));
    }
    return end != ReadEnd::kLost;
}

void TtyWire::lose()
{
    // The line can be opened again only after the writer has closed it.
    writer_.close();
    line_.reset();
    reporter_(name_ + ": line lost; waiting for it to return");
}

void TtyWire::recover()
{
    pollfd polled{wakeup_.descriptor(), POLLIN, 0};
    if (poll(&polled, 1, kRetryMs) != 0) {
        return;
    }
    try {
        line_ = terminal_->open();
    } catch (const TerminalError&) {
        return;  // not back yet
    }
    writer_.open(line_);
    reporter_(name_ + ": line is back");
}

}  // namespace runtime
