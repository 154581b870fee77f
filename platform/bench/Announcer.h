#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace bench {

/// Tells observers what happened, in the order in which it happened, without holding a lock meanwhile.
/// Whoever changes something calls enqueue() under the lock that orders the changes, and deliver() after releasing it.
/// Any thread; while one thread delivers, it also delivers what others enqueue.
template <class Event>
class Announcer
{
public:
    /// Called on the thread of any change, one call at a time. Must be quick and must not throw; may cause changes.
    using Observer = std::function<void(const Event&)>;

    /// @returns what remove() takes.
    int add(Observer observer)
    {
        const std::lock_guard lock(mutex_);
        observers_.push_back({++lastId_, std::make_shared<const Observer>(std::move(observer))});
        return lastId_;
    }

    /// Removes an observer. A call that is under way on another thread goes on, so an observer owns what it uses.
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
