#include "line/Lane.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace line {

namespace {

using protocol::Bytes;
using station::ScannedPiece;

/// The beginning of a frame, with noise before it, is at most this long.
constexpr std::size_t kLongestBeginning = 2 * protocol::kMaxStationFrame;

/// Start bit, 8 data bits, stop bit.
constexpr double kBitsPerByte = 10;

/// A slow line passes on what it can carry in this time, and at least a byte.
constexpr double kSlice = 0.005;

constexpr std::size_t kLongestBurst = 8;

std::string millisecondsText(double seconds)
{
    return fmt::format("{:.0f} ms", seconds * 1000);
}

}  // namespace

Lane::Lane(std::uint64_t seed, Observer observer)
    : observer_(std::move(observer)), random_(seed), noiseRandom_(seed ^ 0x9E37'79B9'7F4A'7C15)
{
}

void Lane::set(const Faults& faults, Clock::time_point now)
{
    const bool other = faults.noise != faults_.noise;
    faults_ = faults;
    if (other) {
        planNoise(now);
    }
}

void Lane::take(Bytes bytes, Clock::time_point now)
{
    counts_.bytes += bytes.size();
    begun_.insert(begun_.end(), bytes.begin(), bytes.end());
    latest_ = now;
    cut(now, false);
}

void Lane::tick(Clock::time_point now)
{
    if (!begun_.empty() && now - latest_ >= kPatience) {
        cut(now, true);
    }
    // After a process that stood still, the noise of that time is not made up for.
    if (nextNoise_ && *nextNoise_ < now - std::chrono::seconds(1)) {
        nextNoise_ = now;
    }
    while (nextNoise_ && *nextNoise_ <= now) {
        makeNoise(now);
        planNoise(*nextNoise_);
    }
}

std::optional<Lane::Clock::time_point> Lane::due(bool stuck) const
{
    std::optional<Clock::time_point> first = nextNoise_;
    const auto consider = [&first](Clock::time_point time) { first = first ? std::min(*first, time) : time; };
    if (!begun_.empty()) {
        consider(latest_ + kPatience);
    }
    if (!chunks_.empty() && !stuck) {
        consider(chunks_.front().at);
    }
    return first;
}

Bytes Lane::ready(Clock::time_point now) const
{
    return chunks_.empty() || chunks_.front().at > now ? Bytes() : Bytes(chunks_.front().bytes).subspan(gone_);
}

void Lane::left(std::size_t count)
{
    waiting_ -= count;
    gone_ += count;
    if (gone_ == chunks_.front().bytes.size()) {
        chunks_.pop_front();
        gone_ = 0;
    }
}

void Lane::discard(Clock::time_point now)
{
    counts_.lostBytes += waiting_ + begun_.size();
    begun_.clear();
    chunks_.clear();
    waiting_ = 0;
    gone_ = 0;
    lastAt_ = Clock::time_point::min();
    planNoise(now);
}

void Lane::lose(std::size_t count)
{
    counts_.bytes += count;
    counts_.lostBytes += count;
}

/// @param all whether to pass on the beginning of a frame, too
void Lane::cut(Clock::time_point now, bool all)
{
    auto pieces = station::scanFrames(begun_);
    begun_.clear();
    for (const ScannedPiece& piece : pieces) {
        if (hangsUp_) {
            counts_.lostBytes += piece.bytes.size();
        } else if (piece.kind == ScannedPiece::Kind::kFrame || piece.kind == ScannedPiece::Kind::kCorrupt) {
            passFrame(piece, now);
        } else if (piece.kind == ScannedPiece::Kind::kIncomplete && !all && piece.bytes.size() <= kLongestBeginning) {
            begun_ = piece.bytes;
        } else {
            observer_(piece, "");
            pass(piece.bytes, now + fromSeconds(faults_.delay));
        }
    }
}

void Lane::passFrame(const ScannedPiece& piece, Clock::time_point now)
{
    std::vector<std::uint8_t> frame = piece.bytes;
    ++counts_.frames;
    // All of them for each frame: another rate of one fault does not change which frames meet the others.
    const bool hangsUp = chance() < faults_.hangUp;
    const bool drops = chance() < faults_.drop;
    const bool corrupts = chance() < faults_.corrupt;
    const bool duplicates = chance() < faults_.duplicate;
    const bool splits = chance() < faults_.split;
    const double later = faults_.delay + faults_.jitter * chance();
    const auto place = static_cast<std::size_t>(chance() * static_cast<double>(frame.size()));
    const auto flipped = static_cast<std::uint8_t>(1 + static_cast<int>(chance() * 255));
    const auto first = 1 + static_cast<std::size_t>(chance() * static_cast<double>(frame.size() - 1));

    if (hangsUp) {
        ++counts_.hangUps;
        counts_.lostBytes += frame.size();
        hangsUp_ = true;
        observer_(piece, "lost: the line hung up");
        return;
    }
    if (drops) {
        ++counts_.dropped;
        observer_(piece, "dropped");
        return;
    }
    std::string deed;
    const auto tell = [&deed](const std::string& what) { deed += (deed.empty() ? "" : ", ") + what; };
    if (corrupts) {
        ++counts_.corrupted;
        // Not the values: the byte may belong to a secret.
        tell(fmt::format("corrupted: byte {} ^ {:02X}", place, flipped));
        frame[place] = static_cast<std::uint8_t>(frame[place] ^ flipped);
    }
    if (duplicates) {
        ++counts_.duplicated;
        tell("duplicated");
    }
    if (splits) {
        ++counts_.split;
        tell(fmt::format("split after {} bytes", first));
    }
    if (later > 0) {
        ++counts_.delayed;
        tell("delayed by " + millisecondsText(later));
    }
    observer_(piece, deed);
    const auto at = now + fromSeconds(later);
    for (int copy = 0; copy < (duplicates ? 2 : 1); ++copy) {
        const std::size_t head = splits ? first : frame.size();
        pass(Bytes(frame).first(head), at);
        pass(Bytes(frame).subspan(head), std::max(at, lastAt_) + kGap);
    }
}

/// The bytes leave after all before them.
void Lane::pass(Bytes bytes, Clock::time_point at)
{
    const double perByte = faults_.baud > 0 ? kBitsPerByte / faults_.baud : 0;
    const std::size_t slice =
        perByte > 0 ? std::max<std::size_t>(1, static_cast<std::size_t>(kSlice / perByte)) : bytes.size();
    lastAt_ = bytes.empty() ? lastAt_ : std::max(lastAt_, at);
    while (!bytes.empty()) {
        const Bytes part = bytes.first(std::min(slice, bytes.size()));
        lastAt_ += fromSeconds(perByte * static_cast<double>(part.size()));
        chunks_.push_back({lastAt_, {part.begin(), part.end()}});
        waiting_ += part.size();
        bytes = bytes.subspan(part.size());
    }
}

void Lane::makeNoise(Clock::time_point now)
{
    ScannedPiece burst;
    burst.bytes.resize(1 + noiseRandom_() % kLongestBurst);
    std::ranges::generate(burst.bytes, [this] { return static_cast<std::uint8_t>(noiseRandom_()); });
    if (full()) {
        return;
    }
    ++counts_.noise;
    observer_(burst, "noise");
    pass(burst.bytes, now);
}

void Lane::planNoise(Clock::time_point from)
{
    const double part = 1 - static_cast<double>(noiseRandom_() >> 11) * 0x1p-53;  // over 0, up to 1
    nextNoise_ = faults_.noise > 0 ? std::optional(from + fromSeconds(-std::log(part) / faults_.noise)) : std::nullopt;
}

}  // namespace line
