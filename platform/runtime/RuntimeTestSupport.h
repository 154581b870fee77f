#pragma once

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "host/Descriptor.h"
#include "platform/runtime/Report.h"
#include "platform/runtime/Wire.h"

/// What the tests of the bench's runtime share.
namespace runtime::testsupport {

using Bytes = std::vector<std::uint8_t>;

/// For what happens at once on any machine that is not stuck.
inline constexpr std::chrono::seconds kGenerous{20};

/// Keeps values that arrive on other threads, and waits for them.
template <class Value>
class Recorder
{
public:
    void add(Value value)
    {
        const std::lock_guard lock(mutex_);
        values_.push_back(std::move(value));
        changed_.notify_all();  // under the lock: whoever has waited may destroy this object
    }

    /// @returns the first `count` values, fewer when they have not come after `patience`.
    std::vector<Value> waitFor(std::size_t count, std::chrono::milliseconds patience = kGenerous)
    {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, patience, [&] { return values_.size() >= count; });
        return {values_.begin(), values_.begin() + static_cast<std::ptrdiff_t>(std::min(count, values_.size()))};
    }

    /// @returns all values so far.
    std::vector<Value> values()
    {
        const std::lock_guard lock(mutex_);
        return values_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Value> values_;  // guarded by mutex_
};

/// What was reported.
class Reports : public Recorder<std::string>
{
public:
    Reporter reporter()
    {
        return [this](const std::string& line) { add(line); };
    }
};

/// Receives what a wire delivers.
class Chunks
{
public:
    Wire::Receiver receiver()
    {
        return [this](std::span<std::uint8_t> chunk) {
            const std::lock_guard lock(mutex_);
            chunks_.emplace_back(chunk.begin(), chunk.end());
            threads_.push_back(std::this_thread::get_id());
            changed_.notify_all();  // under the lock: whoever has waited may destroy this object
        };
    }

    /// Waits until `count` bytes have come; @returns all that have.
    Bytes waitForBytes(std::size_t count)
    {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, kGenerous, [&] { return joinedLocked().size() >= count; });
        return joinedLocked();
    }

    std::vector<Bytes> chunks()
    {
        const std::lock_guard lock(mutex_);
        return chunks_;
    }

    std::vector<std::thread::id> threads()
    {
        const std::lock_guard lock(mutex_);
        return threads_;
    }

private:
    Bytes joinedLocked() const
    {
        Bytes all;
        for (const Bytes& chunk : chunks_) {
            all.insert(all.end(), chunk.begin(), chunk.end());
        }
        return all;
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Bytes> chunks_;             // guarded by mutex_
    std::vector<std::thread::id> threads_;  // guarded by mutex_
};

/// @returns `count` bytes of `descriptor`, fewer when they have not come after a generous while.
inline Bytes readBytes(int descriptor, std::size_t count)
{
    Bytes bytes;
    pollfd polled{descriptor, POLLIN, 0};
    while (bytes.size() < count && poll(&polled, 1, static_cast<int>(kGenerous.count()) * 1000) > 0) {
        std::array<std::uint8_t, 4096> chunk{};
        const ssize_t got = read(descriptor, chunk.data(), std::min(chunk.size(), count - bytes.size()));
        if (got <= 0) {
            break;
        }
        bytes.insert(bytes.end(), chunk.begin(), chunk.begin() + got);
    }
    return bytes;
}

/// The station's program: opens its end of the line as it is.
class StationEnd
{
public:
    explicit StationEnd(const std::filesystem::path& path) : end_(open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)) {}

    bool isOpen() const { return end_.valid(); }
    int descriptor() const { return end_.get(); }

    /// Blocks until the line has taken all.
    bool write(const Bytes& bytes) const
    {
        return ::write(end_.get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    }

    Bytes read(std::size_t count) const { return readBytes(end_.get(), count); }

    /// @returns whether there is something to read at this moment.
    bool hasInput() const
    {
        pollfd polled{end_.get(), POLLIN, 0};
        return poll(&polled, 1, 0) > 0;
    }

private:
    host::Descriptor end_;
};

}  // namespace runtime::testsupport
