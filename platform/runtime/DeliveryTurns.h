#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace runtime {

/// Counts the chunks of the station's bytes that are delivered, so that an event that a command causes can wait until
/// the command has been answered: on a unit what it has begun takes its time. Any thread.
class DeliveryTurns
{
public:
    /// A chunk is being delivered as long as one of these is there.
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

    /// The adapter's.
    static DeliveryTurns& instance();

    /// @returns the chunk that is being delivered, 0 for none.
    std::uint64_t current() const;

    /// Waits until that chunk has been handled, a few seconds at most; not on the thread that delivers it.
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
