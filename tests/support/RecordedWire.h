#pragma once

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <initializer_list>
#include <mutex>
#include <string>
#include <vector>

#include "platform/runtime/Wire.h"

/// The line to the station in memory. Records what the unit sends, and delivers what the station sends on the thread of
/// the caller, so that its effects on that thread are complete at the return.
class RecordedWire : public runtime::Wire
{
public:
    using Bytes = std::vector<std::uint8_t>;

    /// Becomes the wire of the process, until it is destroyed.
    RecordedWire();
    ~RecordedWire() override;

    // The unit's side.
    void attach(Receiver receiver) override;
    void detach() override;
    bool send(std::span<const std::uint8_t> frame) override;

    /// Delivers bytes as one chunk, unchanged.
    void deliver(Bytes bytes);

    /// Delivers one command as a valid frame of any length.
    void sendCommand(std::uint8_t cmdOne, std::uint8_t cmdTwo, const Bytes& params = {});

    /// Sending the next frame throws `exception`; the frame is not recorded.
    template <class Exception>
    void throwOnNextSend(const Exception& exception)
    {
        const std::lock_guard lock(mutex_);
        throw_ = std::make_exception_ptr(exception);
    }

    /// Blocks senders until release(), like a line whose station does not read.
    /// @param after how many frames since the last clear() still pass
    void hold(std::size_t after = 0);
    void release();

    /// @returns the bytes that the unit has sent since the last clear(), one entry for each send.
    std::vector<Bytes> sent();

    /// @returns the same as text, "8F 00 [01]".
    std::vector<std::string> replies();

    /// Waits until the unit has sent `count` frames since the last clear().
    /// @returns whether it did in time.
    bool waitForFrames(std::size_t count);

    void clear();

    /// Called before a frame is recorded, on the sender's thread; may be empty. Set it while nobody sends.
    std::function<void()> onSend;

private:
    static constexpr std::size_t kEndless = SIZE_MAX;

    Receiver receiver_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::size_t room_ = kEndless;  // how long sent_ may become; guarded by mutex_
    std::vector<Bytes> sent_;      // guarded by mutex_
    std::exception_ptr throw_;     // guarded by mutex_
};
