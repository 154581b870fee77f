#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

namespace web {

/// The latest events of a program, for any number of readers who need not keep up. Any thread may call it.
/// Each event has an id. A reader whose next event has been dropped, or who was connected to another process, gets a
/// snapshot in its place.
class Events
{
public:
    /// @returns the state of everything as one line of JSON. Called on the server's thread, so it does not wait.
    using Snapshot = std::function<std::string()>;

    /// @param kept how many events are kept
    Events(std::size_t kept, Snapshot snapshot);

    /// Adds an event. `type` and `data` are one line each.
    void publish(std::string_view type, std::string_view data);

    /// How far a reader has come.
    struct Place {
        std::uint64_t next = 0;  ///< the number of its next event; 0 for a snapshot first
    };

    /// @returns the place of a reader who says that it has read `lastId`; that of a new one for any other text.
    Place placeAfter(std::string_view lastId) const;

    /// @returns the next events as server-sent events, some 64 KiB at most; empty if there are none. Moves the place.
    std::string read(Place& place) const;

    /// @returns whether read() has something for this place.
    bool hasNews(const Place& place) const;

    /// Sets what publish() calls at its end, outside of all locks; replaces what was set before.
    void onPublished(std::function<void()> wake);

private:
    std::string idOf(std::uint64_t number) const;

    const std::size_t kept_;
    const Snapshot snapshot_;
    const std::string process_;  ///< tells the ids of this process from those of others
    mutable std::mutex mutex_;
    std::deque<std::string> texts_;  // guarded by mutex_
    std::uint64_t next_ = 1;         // guarded by mutex_; the number of the event after the last
    std::mutex wakeMutex_;           // held while wake_ runs, so that nothing calls it after it has been replaced
    std::function<void()> wake_;     // guarded by wakeMutex_
};

}  // namespace web
