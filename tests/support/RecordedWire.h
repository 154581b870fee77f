#pragma once

#include <condition_variable>
#include <cstdint>
#include <initializer_list>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/runtime/Wire.h"

/// The station's line in memory: what the unit sends is recorded, what the station sends is delivered on the caller's
/// thread, so that everything it causes there has happened when the call returns.
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

    /// Delivers bytes as one chunk, as they are.
    void deliver(Bytes bytes);

    /// Delivers one command as a sound frame of any length.
    void sendCommand(std::uint8_t cmdOne, std::uint8_t cmdTwo, const Bytes& params = {});

    /// The next frame that the unit sends is not recorded: an exception comes out of sending it.
    void throwOnNextSend(const std::string& what);

    /// Lets whoever sends wait, as a line does whose station does not read, until release().
    void hold();
    void release();

    /// @returns what the unit has sent since the last clear(), byte for byte, one entry a send.
    std::vector<Bytes> sent();

    /// @returns the same as text, "8F 00 [01]".
    std::vector<std::string> replies();

    /// Waits until the unit has sent `count` frames since the last clear().
    /// @returns whether it has; false after a generous while.
    bool waitForFrames(std::size_t count);

    void clear();

private:
    Receiver receiver_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool held_ = false;                 // guarded by mutex_
    std::vector<Bytes> sent_;           // guarded by mutex_
    std::optional<std::string> throw_;  // guarded by mutex_
};
