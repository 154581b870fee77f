#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace bench {

/// Calls observers for each event, in the order of the events, without holding a lock. Code that changes something
/// calls enqueue() with the lock that orders the changes, and deliver() without it. Any thread; the thread that
/// delivers also delivers the events of other threads.
template <class Event>
class Announcer
{
public:
    /// Called on the thread of any change, one call at a time. Must be quick and must not throw. May cause changes.
    using Observer = std::function<void(const Event&)>;

    /// @returns what remove() takes.
    int add(Observer observer)
    {
        const std::lock_guard lock(mutex_);
        observers_.push_back({++lastId_, std::make_shared<const Observer>(std::move(observer))});
        return lastId_;
    }

    /// Removes an observer. A call on another thread may still be running, so an observer owns what it uses.
    void remove(int id)
    {
        const std::lock_guard lock(mutex_);
        std::erase_if(observers_, [id](const Entry& entry) { return entry.id == id; });
    }

    void enqueue(Event event)
    {
        const std::lock_guard lock(mutex_);
        if (!observers_.empty()) {
            pending_.push_back(std::move(event));
        }
    }

    void deliver()
    {
        std::unique_lock lock(mutex_);
        if (delivering_) {
            return;
        }
        delivering_ = true;
        while (!pending_.empty()) {
            const Event event = std::move(pending_.front());
            pending_.pop_front();
            const auto observers = observers_;
            lock.unlock();
            for (const Entry& entry : observers) {
                (*entry.observer)(event);
            }
            lock.lock();
        }
        delivering_ = false;
    }

private:
    struct Entry {
        int id;
        std::shared_ptr<const Observer> observer;
    };

    std::mutex mutex_;
    std::vector<Entry> observers_;  // guarded by mutex_
    std::deque<Event> pending_;     // guarded by mutex_
    bool delivering_ = false;       // guarded by mutex_
    int lastId_ = 0;                // guarded by mutex_
};

}  // namespace bench
