#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "line/Faults.h"
#include "protocol/Frame.h"
#include "station/FrameScanner.h"

namespace line {

inline std::chrono::steady_clock::duration fromSeconds(double seconds)
{
    return std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(seconds));
}

/// What has happened on one direction of a line.
struct Counts {
    std::uint64_t bytes = 0;   ///< that came in
    std::uint64_t frames = 0;  ///< that came in, whatever their checksum
    std::uint64_t dropped = 0;
    std::uint64_t corrupted = 0;
    std::uint64_t duplicated = 0;
    std::uint64_t split = 0;
    std::uint64_t delayed = 0;
    std::uint64_t noise = 0;      ///< bursts
    std::uint64_t hangUps = 0;    ///< caused by a frame
    std::uint64_t lostBytes = 0;  ///< while an end was away
};

/// One direction of a line. Knows no clock and no descriptor: the caller gives the time, the bytes that came, and the
/// room of the other end. Which frame meets which fault depends on the seed and on the order of the frames alone.
class Lane
{
public:
    using Clock = std::chrono::steady_clock;

    /// Gets each piece as it came, or a burst of noise, and what the line did; empty for nothing.
    using Observer = std::function<void(const station::ScannedPiece& piece, const std::string& deed)>;

    /// Above this number of waiting bytes, the lane takes no more.
    static constexpr std::size_t kMostWaiting = std::size_t{64} << 10;

    /// How long the beginning of a frame waits for the rest.
    static constexpr std::chrono::milliseconds kPatience{50};

    /// The time between both parts of a split frame.
    static constexpr std::chrono::milliseconds kGap{20};

    Lane(std::uint64_t seed, Observer observer);

    void set(const Faults& faults, Clock::time_point now);
    const Faults& faults() const { return faults_; }

    /// Takes bytes that came in.
    void take(protocol::Bytes bytes, Clock::time_point now);

    /// Does what is due: makes noise, passes on the beginning of a frame whose rest does not come.
    void tick(Clock::time_point now);

    /// @returns when tick() has something to do, or more bytes may leave.
    /// @param stuck whether bytes that may leave wait for room at the other end: their time does not count then
    std::optional<Clock::time_point> due(bool stuck = false) const;

    /// @returns bytes that may leave; empty for none. Valid until the next call.
    protocol::Bytes ready(Clock::time_point now) const;

    /// Of the bytes that were ready, `count` have left.
    void left(std::size_t count);

    bool full() const { return waiting_ >= kMostWaiting; }

    /// Drops all that has not left, and plans the noise anew from `now` on: an end is away or back.
    void discard(Clock::time_point now);

    /// Counts bytes that came while an end was away.
    void lose(std::size_t count);

    /// @returns whether a frame since the last call is to hang the line up.
    bool hangsUp() { return std::exchange(hangsUp_, false); }

    const Counts& counts() const { return counts_; }
    void clearCounts() { counts_ = {}; }

private:
    struct Chunk {
        Clock::time_point at;
        std::vector<std::uint8_t> bytes;
    };

    double chance() { return static_cast<double>(random_() >> 11) * 0x1p-53; }
    void cut(Clock::time_point now, bool all);
    void passFrame(const station::ScannedPiece& piece, Clock::time_point now);
    void pass(protocol::Bytes bytes, Clock::time_point at);
    void makeNoise(Clock::time_point now);
    void planNoise(Clock::time_point from);

    Faults faults_;
    Counts counts_;
    const Observer observer_;
    std::mt19937_64 random_;
    std::mt19937_64 noiseRandom_;      // of its own: the noise follows the time, the other faults do not
    std::vector<std::uint8_t> begun_;  // the beginning of a frame
    Clock::time_point latest_;         // when its last byte came
    std::optional<Clock::time_point> nextNoise_;
    std::deque<Chunk> chunks_;
    std::size_t waiting_ = 0;                              // bytes in chunks_
    std::size_t gone_ = 0;                                 // bytes of the first chunk that have left
    Clock::time_point lastAt_ = Clock::time_point::min();  // when the last chunk may leave
    bool hangsUp_ = false;
};

}  // namespace line
