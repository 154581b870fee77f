#pragma once

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "host/Descriptor.h"
#include "platform/runtime/FrameWriter.h"
#include "platform/runtime/Report.h"
#include "platform/runtime/Terminal.h"
#include "platform/runtime/Wire.h"

namespace runtime {

/// The line to the station over a terminal. While a receiver is attached, the wire opens a lost line again as soon as
/// possible. It reports when the line is lost and when it is back.
class TtyWire : public Wire
{
public:
    /// Opens the line. The terminal keeps incoming bytes until a receiver attaches.
    /// @throws TerminalError
    explicit TtyWire(std::unique_ptr<Terminal> terminal, Reporter reporter = report);

    /// As stop(). Not on the delivery thread.
    ~TtyWire() override;
    TtyWire(const TtyWire&) = delete;
    TtyWire& operator=(const TtyWire&) = delete;

    void attach(Receiver receiver) override;
    void detach() override;
    bool send(std::span<const std::uint8_t> frame) override { return writer_.send(frame); }

    /// From now on the delivery thread calls `alive` in each `interval`, also while the line is lost; but not while a
    /// receiver does not return. Before attach().
    void beat(std::chrono::milliseconds interval, std::function<void()> alive);

    /// Removes the link by which the station finds the line. The line itself stays open. Any thread.
    void withdraw() { terminal_->withdraw(); }

    /// Withdraws, ends the delivery and closes the line. From now on the wire drops frames and delivers nothing. Not on
    /// the delivery thread.
    void stop();

    /// @returns the absolute path of the line.
    const std::filesystem::path& path() const { return terminal_->path(); }

private:
    void run(const Receiver& receiver);
    void beatIfDue();
    bool waitForInput();
    bool deliverChunk(const Receiver& receiver);
    void lose();
    void recover();
    void detachLocked();
    bool onDeliveryThread() const { return std::this_thread::get_id() == deliveryThread_; }

    const std::unique_ptr<Terminal> terminal_;
    const Reporter reporter_;
    const std::string name_;
    const host::Wakeup wakeup_;                     // wakes the delivery thread
    std::shared_ptr<const host::Descriptor> line_;  // null: lost; only the delivery thread uses it
    FrameWriter writer_;
    std::chrono::milliseconds beatInterval_{};
    std::function<void()> alive_;                     // empty: no beat
    std::chrono::steady_clock::time_point lastBeat_;  // only the delivery thread uses it

    std::mutex mutex_;      // attach, detach and stop
    std::thread thread_;    // guarded by mutex_
    bool stopped_ = false;  // guarded by mutex_
    std::atomic<std::thread::id> deliveryThread_{};
    std::atomic<bool> stopping_ = false;
};

}  // namespace runtime
