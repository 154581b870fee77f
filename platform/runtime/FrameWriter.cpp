#include "platform/runtime/FrameWriter.h"

#include <poll.h>

#include <array>
#include <utility>

namespace runtime {
namespace {

/// How often to look at a line that takes nothing: some terminal drivers do not wake a poll() when the reader discards
/// its input.
constexpr int kLookAgainMs = 200;

}  // namespace

FrameWriter::FrameWriter(std::string name, Reporter reporter, std::chrono::milliseconds patience)
    : name_(std::move(name)), reporter_(std::move(reporter)), patience_(patience)
{
}

FrameWriter::~FrameWriter()
{
    {
        const std::lock_guard lock(mutex_);
        closeLocked();
        ending_ = true;
    }
    wakeup_.signal();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void FrameWriter::open(std::shared_ptr<const host::Descriptor> line)
{
    const std::lock_guard lock(mutex_);
    closeLocked();
    line_ = std::move(line);
    wakeup_.signal();
}

void FrameWriter::close()
{
    std::unique_lock lock(mutex_);
    closeLocked();
    wakeup_.signal();
    settled_.wait(lock, [this] { return !watching_; });
}

bool FrameWriter::send(std::span<const std::uint8_t> frame)
{
    const auto deadline = std::chrono::steady_clock::now() + patience_;
    std::unique_lock lock(mutex_);
    if (stalled_) {
        ++dropped_;
    }
    if (stalled_ || !line_) {
        return false;
    }

    const std::size_t written = queue_.empty() ? writeSomeLocked(frame) : 0;
    if (written == frame.size()) {
        return true;
    }
    if (!line_) {
        return false;
    }

    const auto rest = frame.subspan(written);
    const auto waiting = std::make_shared<Waiting>(Waiting{{rest.begin(), rest.end()}, written > 0});
    queue_.push_back(waiting);
    // After the frame is in the queue: if no thread can be started, a later frame still finds the rest of this one
    // before it.
    if (!thread_.joinable()) {
        thread_ = std::thread([this] { run(); });
    }
    wakeup_.signal();
    if (!settled_.wait_until(lock, deadline, [&] { return waiting->fate != Fate::kWaiting; })) {
        beginStallLocked();
    }
    return waiting->fate == Fate::kTaken;
}

/// @returns how many bytes the line took. Gives up a line that is gone.
std::size_t FrameWriter::writeSomeLocked(std::span<const std::uint8_t> bytes)
{
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t count = write(line_->get(), bytes.data() + written, bytes.size() - written);
        if (count > 0) {
            written += static_cast<std::size_t>(count);
            continue;
        }
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
            closeLocked();
        }
        break;
    }
    return written;
}

void FrameWriter::advanceLocked()
{
    while (line_ && !queue_.empty()) {
        const auto first = queue_.front();
        const std::size_t written = writeSomeLocked(first->rest);
        if (!line_) {
            return;
        }
        first->rest.erase(first->rest.begin(), first->rest.begin() + static_cast<std::ptrdiff_t>(written));
        first->begun = first->begun || written > 0;
        if (!first->rest.empty()) {
            return;
        }
        queue_.pop_front();
        settleLocked(*first, Fate::kTaken);
    }
}

void FrameWriter::settleLocked(Waiting& frame, Fate fate)
{
    frame.fate = fate;
    settled_.notify_all();
}

void FrameWriter::beginStallLocked()
{
    stalled_ = true;
    reports_.push_back(name_ + ": the station does not read; dropping frames until it does");
    // Only the first frame can be partly written. It stays.
    while (!queue_.empty() && !queue_.back()->begun) {
        settleLocked(*queue_.back(), Fate::kDropped);
        queue_.pop_back();
        ++dropped_;
    }
    if (!queue_.empty()) {
        settleLocked(*queue_.front(), Fate::kTaken);
    }
    wakeup_.signal();
}

void FrameWriter::endStallLocked()
{
    if (!std::exchange(stalled_, false)) {
        return;
    }
    reports_.push_back(name_ + ": the station reads again; frames dropped: " + std::to_string(dropped_));
    dropped_ = 0;
}

void FrameWriter::closeLocked()
{
    endStallLocked();
    line_.reset();
    for (const auto& frame : queue_) {
        settleLocked(*frame, Fate::kDropped);
    }
    queue_.clear();
}

void FrameWriter::run()
{
    std::unique_lock lock(mutex_);
    while (!ending_) {
        tell(lock);
        watch(lock);
    }
    tell(lock);
}

/// Waits for the wakeup, and for the line if there is something to write or a stall to end.
void FrameWriter::watch(std::unique_lock<std::mutex>& lock)
{
    auto line = stalled_ || !queue_.empty() ? line_ : nullptr;  // stays open while it is polled
    watching_ = line != nullptr;
    lock.unlock();
    std::array<pollfd, 2> polled{{{wakeup_.descriptor(), POLLIN, 0}, {line ? line->get() : -1, POLLOUT, 0}}};
    poll(polled.data(), polled.size(), line ? kLookAgainMs : -1);
    wakeup_.clear();
    lock.lock();

    const bool current = line && line == line_;
    line.reset();
    watching_ = false;
    settled_.notify_all();
    if (!current) {
        return;
    }
    advanceLocked();
    const bool takesMore = (polled[1].revents & POLLOUT) != 0 && queue_.empty();
    if (takesMore || (polled[1].revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
        endStallLocked();
    }
}

/// Without the lock: standard error may block.
void FrameWriter::tell(std::unique_lock<std::mutex>& lock)
{
    while (!reports_.empty()) {
        const std::string text = std::move(reports_.front());
        reports_.pop_front();
        lock.unlock();
        reporter_(text);
        lock.lock();
    }
}

}  // namespace runtime
