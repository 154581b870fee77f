#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace runtime {

/// Numbers the chunks of bytes that the station sends. An event that a command causes waits with it until the command
/// has been answered: on a unit, the action takes its time. Any thread.
class DeliveryTurns
{
public:
    /// A chunk is being delivered while an object of this class exists.
    class Turn
    {
    public:
        explicit Turn(DeliveryTurns& turns) : turns_(turns) { turns_.begin(); }
        ~Turn() { turns_.end(); }
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

    private:
        DeliveryTurns& turns_;
    };

    /// @returns the adapter's.
    static DeliveryTurns& instance();

    /// @returns the chunk that is being delivered; 0 if there is none.
    std::uint64_t current() const;

    /// Waits until that chunk has been handled, for a few seconds at most. Not on the thread that delivers it.
    void waitForEnd(std::uint64_t turn);

private:
    void begin();
    void end();

    mutable std::mutex mutex_;
    std::condition_variable ended_;
    std::uint64_t last_ = 0;     // guarded by mutex_
    std::uint64_t current_ = 0;  // guarded by mutex_
};

}  // namespace runtime
