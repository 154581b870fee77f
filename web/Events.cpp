#include "web/Events.h"

#include <fmt/format.h>

#include <charconv>
#include <utility>

#include "web/Login.h"

namespace web {

namespace {

constexpr std::size_t kAtOnce = 64 << 10;

}  // namespace

Events::Events(std::size_t kept, Snapshot snapshot)
    : kept_(kept), snapshot_(std::move(snapshot)), process_(randomToken().substr(0, 8))
{
}

std::string Events::idOf(std::uint64_t number) const
{
    return fmt::format("{}-{}", process_, number);
}

void Events::publish(std::string_view type, std::string_view data)
{
    {
        const std::lock_guard lock(mutex_);
        texts_.push_back(fmt::format("id: {}\nevent: {}\ndata: {}\n\n", idOf(next_), type, data));
        ++next_;
        if (texts_.size() > kept_) {
            texts_.pop_front();
        }
    }
    const std::lock_guard lock(wakeMutex_);
    if (wake_) {
        wake_();
    }
}

Events::Place Events::placeAfter(std::string_view lastId) const
{
    Place place;
    if (lastId.starts_with(process_ + "-")) {
        const std::string_view digits = lastId.substr(process_.size() + 1);
        std::uint64_t last = 0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), last);
        const std::lock_guard lock(mutex_);
        if (error == std::errc() && end == digits.data() + digits.size() && last < next_) {
            place.next = last + 1;
        }
    }
    return place;
}

std::string Events::read(Place& place) const
{
    std::string text;
    std::unique_lock lock(mutex_);
    const std::uint64_t first = next_ - texts_.size();
    if (place.next < first || place.next == 0) {
        place.next = next_;
        // What happens from here on may be in the snapshot and follow it, too. It is never in neither.
        lock.unlock();
        return fmt::format("id: {}\nevent: snapshot\ndata: {}\n\n", idOf(place.next - 1), snapshot_());
    }
    for (; place.next < next_ && text.size() < kAtOnce; ++place.next) {
        text += texts_[place.next - first];
    }
    return text;
}

bool Events::hasNews(const Place& place) const
{
    const std::lock_guard lock(mutex_);
    return place.next != next_;
}

void Events::onPublished(std::function<void()> wake)
{
    const std::lock_guard lock(wakeMutex_);
    wake_ = std::move(wake);
}

}  // namespace web
