#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/Descriptor.h"
#include "platform/linux/Mixer.h"
#include "tests/support/ChildProcess.h"

namespace tests {

/// A sound card with the elements "Master", with a volume, and "Tone", with a switch; it can vanish and hang. Any
/// thread.
class FakeCard
{
public:
    using Level = unit::Mixer::Level;

    /// @returns a mixer of this card, which may outlive its maker.
    static std::unique_ptr<unit::Mixer> mixer(std::shared_ptr<FakeCard> card)
    {
        return std::make_unique<FakeMixer>(std::move(card));
    }

    void set(const Level& level)
    {
        change([&] { level_ = level; });
    }
    void setThere(bool isThere)
    {
        change([&] { isThere_ = isThere; });
    }
    /// From now on every call waits until this is called with false.
    void setHanging(bool isHanging)
    {
        change([&] { isHanging_ = isHanging; });
    }

    /// Waits until a call hangs.
    bool waitUntilItHangs()
    {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kGenerous, [this] { return hangs_; });
    }

    /// Waits until the volume is `volume`, or the tone switch `isOn`.
    bool waitForVolume(long volume)
    {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kGenerous, [&] { return level_.now == volume; });
    }
    bool waitForTone(bool isOn)
    {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kGenerous, [&] { return isToneOn_ == isOn; });
    }

private:
    class FakeMixer : public unit::Mixer
    {
    public:
        explicit FakeMixer(std::shared_ptr<FakeCard> card) : card_(std::move(card)) {}

        void open() override
        {
            card_->ask([] {});
        }
        void close() override {}
        std::vector<pollfd> descriptors() override { return {{card_->event_.descriptor(), POLLIN, 0}}; }
        void takeChanges() override
        {
            card_->event_.clear();
            card_->ask([] {});
        }
        Level level(const std::string& element) override
        {
            Level level;
            card_->ask([&] {
                expect(element, "Master");
                level = card_->level_;
            });
            return level;
        }
        void setVolume(const std::string& element, long volume) override
        {
            card_->ask([&] {
                expect(element, "Master");
                card_->level_.now = volume;
                card_->changed_.notify_all();
            });
        }
        void setSwitch(const std::string& element, bool isOn) override
        {
            card_->ask([&] {
                expect(element, "Tone");
                card_->isToneOn_ = isOn;
                card_->changed_.notify_all();
            });
        }

    private:
        static void expect(const std::string& element, const std::string& name)
        {
            if (element != name) {
                throw std::runtime_error("expected the element '" + element + "', got " + name);
            }
        }

        const std::shared_ptr<FakeCard> card_;
    };

    template <class Action>
    void change(Action action)
    {
        {
            const std::lock_guard lock(mutex_);
            action();
        }
        changed_.notify_all();
        event_.signal();
    }

    template <class Action>
    void ask(Action action)
    {
        std::unique_lock lock(mutex_);
        hangs_ = isHanging_;
        changed_.notify_all();
        changed_.wait(lock, [this] { return !isHanging_; });
        hangs_ = false;
        if (!isThere_) {
            throw std::runtime_error("no such card");
        }
        action();
    }

    const host::Wakeup event_;
    std::mutex mutex_;
    std::condition_variable changed_;
    Level level_{0, 100, 50, false};  // guarded by mutex_, as all below
    bool isToneOn_ = false;
    bool isThere_ = true;
    bool isHanging_ = false;
    bool hangs_ = false;  // a call
};

}  // namespace tests
