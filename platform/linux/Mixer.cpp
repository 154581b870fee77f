#include "platform/linux/Mixer.h"

#include <alsa/asoundlib.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "host/Descriptor.h"

namespace unit {
namespace {

/// For a mixer that is asked, and for one that is left behind.
constexpr std::chrono::seconds kMixerPatience{2};

constexpr std::chrono::seconds kRetryMixer{1};

void saysNothing(const char*, int, const char*, int, const char*, ...) {}

class AlsaMixer : public Mixer
{
public:
    explicit AlsaMixer(std::string card) : card_(std::move(card))
    {
        // By itself, the library writes a line for each attempt.
        snd_lib_error_set_handler(saysNothing);
    }
    ~AlsaMixer() override { AlsaMixer::close(); }

    void open() override
    {
        check(snd_mixer_open(&mixer_, 0));
        check(snd_mixer_attach(mixer_, card_.c_str()));
        check(snd_mixer_selem_register(mixer_, nullptr, nullptr));
        check(snd_mixer_load(mixer_));
    }

    void close() override
    {
        if (mixer_ != nullptr) {
            snd_mixer_close(std::exchange(mixer_, nullptr));
        }
    }

    std::vector<pollfd> descriptors() override
    {
        std::vector<pollfd> all(static_cast<std::size_t>(std::max(snd_mixer_poll_descriptors_count(mixer_), 0)));
        check(snd_mixer_poll_descriptors(mixer_, all.data(), static_cast<unsigned>(all.size())));
        return all;
    }

    void takeChanges() override { check(snd_mixer_handle_events(mixer_)); }

    Level level(const std::string& element) override
    {
        snd_mixer_elem_t* const control = find(element);
        if (snd_mixer_selem_has_playback_volume(control) == 0) {
            throw std::runtime_error(fmt::format("{}: the element '{}' has no playback volume", card_, element));
        }
        Level level;
        check(snd_mixer_selem_get_playback_volume_range(control, &level.least, &level.most));
        check(snd_mixer_selem_get_playback_volume(control, channelOf(control), &level.now));
        if (snd_mixer_selem_has_playback_switch(control) != 0) {
            int isOn = 1;
            check(snd_mixer_selem_get_playback_switch(control, channelOf(control), &isOn));
            level.isMuted = isOn == 0;
        }
        return level;
    }

    void setVolume(const std::string& element, long volume) override
    {
        check(snd_mixer_selem_set_playback_volume_all(find(element), volume));
    }

    void setSwitch(const std::string& element, bool isOn) override
    {
        snd_mixer_elem_t* const control = find(element);
        if (snd_mixer_selem_has_playback_switch(control) == 0) {
            throw std::runtime_error(fmt::format("{}: the element '{}' has no switch", card_, element));
        }
        check(snd_mixer_selem_set_playback_switch_all(control, isOn ? 1 : 0));
    }

private:
    static snd_mixer_selem_channel_id_t channelOf(snd_mixer_elem_t* control)
    {
        int channel = SND_MIXER_SCHN_FRONT_LEFT;
        while (channel < SND_MIXER_SCHN_LAST &&
               snd_mixer_selem_has_playback_channel(control, static_cast<snd_mixer_selem_channel_id_t>(channel)) == 0) {
            ++channel;
        }
        return static_cast<snd_mixer_selem_channel_id_t>(channel);
    }

    void check(int result) const
    {
        if (result >= 0) {
            return;
        }
        const char* help = "";
        if (result == -EACCES) {
            help = "; the user needs the group 'audio'";
        } else if (card_.starts_with("hw:")) {
            help = "; /proc/asound/cards lists the cards";
        } else if (card_ == "pipewire" && result != -ENOENT) {
            help = "; start pipewire, and set PIPEWIRE_RUNTIME_DIR to the folder of its socket";
        } else if (result == -ENOENT) {
            help = card_ == "pipewire" ? "; install pipewire-alsa"
                                       : "; install ALSA's plugin of this name, in libasound2-plugins";
        }
        throw std::runtime_error(fmt::format("{}: {}{}", card_, std::generic_category().message(-result), help));
    }

    /// @param element as amixer takes it: "Master", or "Master,1" for the second one
    snd_mixer_elem_t* find(const std::string& element) const
    {
        snd_mixer_selem_id_t* id = nullptr;
        snd_mixer_selem_id_alloca(&id);
        check(snd_mixer_selem_id_parse(id, element.c_str()));
        snd_mixer_elem_t* const found = snd_mixer_find_selem(mixer_, id);
        if (found == nullptr) {
            std::string names;
            for (snd_mixer_elem_t* each = snd_mixer_first_elem(mixer_); each != nullptr;
                 each = snd_mixer_elem_next(each)) {
                names += (names.empty() ? "" : ", ") + std::string(snd_mixer_selem_get_name(each));
            }
            throw std::runtime_error(
                fmt::format("{}: expected the element '{}', got {}", card_, element, names.empty() ? "none" : names));
        }
        return found;
    }

    const std::string card_;
    snd_mixer_t* mixer_ = nullptr;
};

}  // namespace

std::unique_ptr<Mixer> alsaMixer(const std::string& card)
{
    return std::make_unique<AlsaMixer>(card);
}

/// What the thread works on. It is not a part of the follower, so that it may outlive it.
struct MixerFollower::Work {
    const UnitConfig::Audio config;
    const std::unique_ptr<Mixer> mixer;
    const runtime::Reporter reporter;
    const host::Wakeup wakeup;
    std::mutex mutex;
    std::condition_variable changed;
    MixerFollower* owner;                  // guarded by mutex; null once it has gone
    bool hasEnded = false;                 // guarded by mutex
    std::optional<int> volume;             // guarded by mutex; to be set
    std::map<std::string, bool> switches;  // guarded by mutex; to be set

    /// Runs `action` with the owner.
    /// @returns false if it has gone.
    template <class Action>
    bool withOwner(Action action)
    {
        const std::lock_guard lock(mutex);
        if (owner == nullptr) {
            return false;
        }
        action(*owner);
        return true;
    }

    void run()
    {
        bool isOpen = false;
        while (withOwner([](MixerFollower& follower) { follower.begun(); })) {
            MixerFollower::Level level;
            std::string reason;
            std::vector<pollfd> awaited;
            try {
                if (!isOpen) {
                    mixer->open();
                    isOpen = true;
                }
                mixer->takeChanges();
                change();
                level = inSteps(mixer->level(config.element));
                awaited = mixer->descriptors();
            } catch (const std::exception& error) {
                reason = error.what();
                mixer->close();
                isOpen = false;
                refuseChanges(reason);
            }
            withOwner([&](MixerFollower& follower) { follower.done(level, reason); });
            if (!wait(std::move(awaited), isOpen)) {
                mixer->close();
                isOpen = false;
            }
        }
        mixer->close();
        const std::lock_guard lock(mutex);
        hasEnded = true;
        changed.notify_all();
    }

    /// @returns false if the card has gone.
    bool wait(std::vector<pollfd> all, bool isOpen) const
    {
        all.push_back({wakeup.descriptor(), POLLIN, 0});
        poll(all.data(), all.size(), isOpen ? -1 : static_cast<int>(std::chrono::milliseconds(kRetryMixer).count()));
        wakeup.clear();
        return std::ranges::none_of(all, [](const pollfd& each) { return (each.revents & (POLLERR | POLLNVAL)) != 0; });
    }

    MixerFollower::Level inSteps(const Mixer::Level& level) const
    {
        const double range = static_cast<double>(level.most - level.least);
        const double part = range > 0 ? static_cast<double>(level.now - level.least) / range : 0.0;
        return {config.steps, std::clamp(static_cast<int>(std::lround(part * config.steps)), 0, config.steps),
                level.isMuted};
    }

    void change()
    {
        const auto [steps, wanted] = takeWishes();
        if (steps) {
            attempt([&, wanted = std::min(*steps, config.steps)] {
                const Mixer::Level level = mixer->level(config.element);
                const double range = static_cast<double>(level.most - level.least);
                mixer->setVolume(config.element, level.least + std::lround(range * wanted / config.steps));
            });
        }
        for (const auto& wish : wanted) {
            attempt([&] { mixer->setSwitch(wish.first, wish.second); });
        }
    }

    /// A change that fails does not close the mixer: a card that has gone shows when it is read.
    template <class Action>
    void attempt(Action action)
    {
        try {
            action();
        } catch (const std::exception& error) {
            reporter(error.what());
        }
    }

    void refuseChanges(const std::string& reason)
    {
        const auto [steps, wanted] = takeWishes();
        if (steps || !wanted.empty()) {
            reporter("the mixer is not changed: " + reason);
        }
    }

    std::pair<std::optional<int>, std::map<std::string, bool>> takeWishes()
    {
        const std::lock_guard lock(mutex);
        return {std::exchange(volume, std::nullopt), std::exchange(switches, {})};
    }
};

MixerFollower::MixerFollower(UnitConfig::Audio config, std::unique_ptr<Mixer> mixer, Loop& loop, Watcher watcher,
                             runtime::Reporter reporter)
    : loop_(loop)
    , watcher_(std::move(watcher))
    , hangs_(fmt::format("{}: no answer for {} s", config.card, kMixerPatience.count()))
    , work_(new Work{.config = std::move(config),
                     .mixer = std::move(mixer),
                     .reporter = std::move(reporter),
                     .wakeup = {},
                     .mutex = {},
                     .changed = {},
                     .owner = this,
                     .volume = {},
                     .switches = {}})
    , thread_([work = work_] { work->run(); })
{
}

MixerFollower::~MixerFollower()
{
    {
        std::unique_lock lock(work_->mutex);
        work_->owner = nullptr;
        work_->wakeup.signal();
        if (!work_->changed.wait_for(lock, kMixerPatience, [this] { return work_->hasEnded; })) {
            thread_.detach();
            return;
        }
    }
    thread_.join();
}

/// On the mixer's thread.
void MixerFollower::begun()
{
    loop_.post([this] { patience_ = loop_.after(kMixerPatience, [this] { watcher_({}, hangs_); }); });
}

/// On the mixer's thread.
void MixerFollower::done(const Level& level, const std::string& reason)
{
    loop_.post([this, level, reason] {
        patience_.reset();
        watcher_(level, reason);
    });
}

void MixerFollower::setVolume(int steps)
{
    const std::lock_guard lock(work_->mutex);
    work_->volume = steps;
    work_->wakeup.signal();
}

void MixerFollower::setSwitch(const std::string& element, bool isOn)
{
    const std::lock_guard lock(work_->mutex);
    work_->switches[element] = isOn;
    work_->wakeup.signal();
}

}  // namespace unit
