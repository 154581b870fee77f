#include "platform/linux/Tuner.h"

#include <fmt/format.h>

#include <algorithm>
#include <system_error>
#include <utility>

#include "platform/runtime/Listeners.h"
#include "platform/runtime/Report.h"

namespace unit {
namespace {

constexpr std::chrono::milliseconds kGetterPatience{40};
constexpr std::chrono::seconds kRetryRadio{1};
constexpr std::chrono::seconds kRadioWatch{1};
constexpr std::chrono::milliseconds kTrafficWatch{200};

/// A station repeats the flag several times a second.
constexpr std::chrono::seconds kTrafficLost{10};

/// The unit of the band's frequencies, in hertz.
constexpr std::uint32_t unitOf(KYRTuner::BandID band)
{
    return band == KYRTuner::BAND_FM ? 10'000 : 1'000;
}

constexpr unsigned inUnits(KYRTuner::BandID band, std::uint32_t hertz)
{
    return (hertz + unitOf(band) / 2) / unitOf(band);
}

const char* remedyFor(int error)
{
    switch (error) {
        case ENOENT:
        case ENODEV:
        case ENXIO:
            return "; connect the radio, or load its driver";
        case EACCES:
        case EPERM:
            return "; add the service's user to the group video";
        default:
            return "";
    }
}

}  // namespace

Tuner::Tuner(UnitConfig::Tuner config, Loop& loop, StatusBoard& board, std::function<void()> startSound,
             std::unique_ptr<RadioDevice> device)
    : config_(std::move(config))
    , loop_(loop)
    , board_(board)
    , startSound_(std::move(startSound))
    , device_(std::move(device))
{
    thread_.post([this] { open(); });
    thread_.run();
}

Tuner::~Tuner()
{
    thread_.stop();
}

/// Runs `action` with the radio; closes it when it fails, and opens it again later.
template <class Action>
void Tuner::withRadio(Action action)
{
    try {
        action();
    } catch (const std::system_error& error) {
        lost(fmt::format("{}: {}{}", config_.device, error.what(), remedyFor(error.code().value())));
    }
}

void Tuner::lost(const std::string& reason)
{
    search_.reset();
    watch_.reset();
    setTraffic(false);
    radio_.reset();
    board_.set("tuner", State::kAbsent, reason);
    timer_ = thread_.after(kRetryRadio, [this] { open(); });
}

void Tuner::open()
{
    withRadio([this] {
        timer_.reset();
        radio_.emplace(*device_, config_.device);
        readBands();
        const bool isFirst = frequency_.empty();
        {
            const std::uint32_t hertz = isFirst ? radio_->frequency() : 0;
            const std::lock_guard lock(mutex_);
            for (const auto& [id, band] : bands_) {
                const unsigned now = inUnits(id, hertz);
                const bool isHere = isFirst && now >= band.low && now <= band.high;
                frequency_[id] = isHere ? now : std::clamp(frequency_[id], band.low, band.high);
                band_ = isHere || !bands_.contains(band_) ? id : band_;
            }
        }
        if (!isFirst) {
            // A radio that was disconnected has forgotten its frequency.
            tuneTo(band_, frequency_.at(band_));
        }
        runtime::report(fmt::format("tuner: {}: {}", config_.device, radio_->description()));
        board_.set("tuner", State::kUp);
        watch();
    });
}

void Tuner::readBands()
{
    bands_.clear();
    const auto add = [this](BandID id, const std::optional<Radio::Band>& is, const UnitConfig::Tuner::Band& wanted) {
        if (!is) {
            return;
        }
        Band band;
        band.low = std::max(inUnits(id, is->low), wanted.low);
        band.high = std::min(inUnits(id, is->high), wanted.high == 0 ? ~0U : wanted.high);
        band.step = wanted.step;
        const unsigned shift = wanted.low % wanted.step;
        band.first = (band.low - shift + band.step - 1) / band.step * band.step + shift;
        if (band.positions() > 0) {
            bands_[id] = band;
        }
    };
    add(BAND_FM, radio_->fm(), config_.fm);
    add(BAND_0, radio_->am(), config_.am);
    if (bands_.empty()) {
        throw std::system_error(ERANGE, std::generic_category(),
                                "expected bands within the radio's " + radio_->description());
    }
}

/// Finds a radio that is gone, and announcements.
void Tuner::watch()
{
    withRadio([this] {
        radio_->signal();
        if (wantsTraffic_ && !search_) {
            watchTraffic();
        }
        watch_ = thread_.after(wantsTraffic_ ? kTrafficWatch : kRadioWatch, [this] { watch(); });
    });
}

void Tuner::watchTraffic()
{
    const auto now = std::chrono::steady_clock::now();
    if (const auto isOn = radio_->trafficAnnouncement()) {
        heardTraffic_ = now;
        setTraffic(*isOn);
    } else if (now - heardTraffic_ > kTrafficLost) {
        setTraffic(false);
    }
}

void Tuner::setTraffic(bool isOn)
{
    if (std::exchange(isTraffic_, isOn) != isOn) {
        loop_.post([this, frequency = frequency_.at(band_), isOn] {
            runtime::tellListeners(*this,
                                   [&](IKYRRadioListener& listener) { listener.OnTAChanged(frequency, isOn ? 1 : 0); });
        });
    }
}

KYRTuner::BandID Tuner::GetCurrentBand()
{
    std::unique_lock lock(mutex_);
    done_.wait_for(lock, kGetterPatience, [this] { return pending_ == 0; });
    return band_;
}

unsigned int Tuner::GetFrequency(BandID eBand)
{
    std::unique_lock lock(mutex_);
    done_.wait_for(lock, kGetterPatience, [this] { return pending_ == 0; });
    const auto frequency = frequency_.find(eBand);
    return frequency == frequency_.end() ? 0 : frequency->second;
}

void Tuner::request(std::function<void()> action)
{
    {
        const std::lock_guard lock(mutex_);
        ++pending_;
    }
    thread_.post([this, action = std::move(action)] {
        if (radio_) {
            withRadio(action);
        } else {
            runtime::report("tuner: a request was refused: the radio is absent");
        }
        const std::lock_guard lock(mutex_);
        --pending_;
        done_.notify_all();
    });
}

const Tuner::Band* Tuner::bandOrReport(BandID band, const char* what) const
{
    const auto found = bands_.find(band);
    if (found == bands_.end()) {
        runtime::report(fmt::format("tuner: {}: expected a band that the radio has, got band {}", what, int{band}));
        return nullptr;
    }
    return &found->second;
}

void Tuner::Play(BandID eBand, unsigned int nFrequency, unsigned int, int bAudible)
{
    request([this, eBand, nFrequency, bAudible] {
        const Band* const band = bandOrReport(eBand, "play");
        if (band == nullptr) {
            return;
        }
        if (nFrequency < band->low || nFrequency > band->high) {
            runtime::report(fmt::format("tuner: play: expected a frequency from {} to {}, got {}", band->low,
                                        band->high, nFrequency));
            return;
        }
        tuneTo(eBand, nFrequency);
        tellFrequency();
        if (bAudible != KYR_FALSE) {
            radio_->unmute();
            loop_.post(startSound_);
        }
    });
}

void Tuner::SwitchBandRequest(BandID eBand)
{
    request([this, eBand] {
        if (bandOrReport(eBand, "switch band") != nullptr) {
            tuneTo(eBand, frequency_.at(eBand));
            tellFrequency();
        }
    });
}

/// Ends a search.
void Tuner::tuneTo(BandID band, unsigned frequency)
{
    search_.reset();
    timer_.reset();
    const std::uint32_t hertz = radio_->tune(frequency * unitOf(band));
    setTraffic(false);
    radio_->trafficAnnouncement();  // of the station before
    const std::lock_guard lock(mutex_);
    band_ = band;
    frequency_[band] = inUnits(band, hertz);
}

void Tuner::tellFrequency()
{
    loop_.post([this, band = band_, frequency = frequency_.at(band_)] {
        runtime::tellListeners(*this,
                               [&](IKYRRadioListener& listener) { listener.OnFrequencyChanged(band, 0, frequency); });
    });
}

void Tuner::SwitchRdsTASetting(unsigned char ucOn)
{
    thread_.post([this, isOn = ucOn != 0] {
        wantsTraffic_ = isOn;
        if (!isOn) {
            setTraffic(false);
        } else if (radio_) {
            radio_->trafficAnnouncement();  // of the time before
            watch();
        }
    });
}

void Tuner::Seek(BandID eBand, int nDirection)
{
    request([this, eBand, nDirection] {
        const Band* const band = bandOrReport(eBand, "seek");
        if (band == nullptr || (nDirection != 0 && nDirection != 1)) {
            return;
        }
        Search search{.purpose = Search::For::kSeek, .band = eBand, .direction = nDirection == 1 ? 1 : -1};
        if (search_ && search_->band == eBand) {
            search.origin = (search_->origin + search_->direction * search_->step) % band->positions();
        } else {
            // Between two positions, the next one is that in the direction. A turn more keeps the sum above 0.
            const unsigned sum =
                frequency_.at(eBand) + static_cast<unsigned>(band->positions()) * band->step - band->first;
            search.origin = static_cast<int>((nDirection == 1 ? sum : sum + band->step - 1) / band->step);
        }
        search.signal = band_ == eBand ? radio_->signal() : -1;
        search_ = std::move(search);
        nextStep();
    });
}

void Tuner::AutoStore()
{
    request([this] {
        search_ = Search{.purpose = Search::For::kStore, .band = band_};
        nextStep();
    });
}

void Tuner::Scan(BandID eBand)
{
    request([this, eBand] {
        const Band* const band = bandOrReport(eBand, "scan");
        if (band == nullptr) {
            return;
        }
        if (band->stations.empty()) {
            search_ = Search{.purpose = Search::For::kScan, .band = eBand};
            nextStep();
        } else {
            playStation(eBand, 0, frequency_.at(eBand));
        }
    });
}

unsigned Tuner::frequencyAt(const Search& search, int step) const
{
    const Band& band = bands_.at(search.band);
    const int position = (search.origin + search.direction * step) % band.positions();
    return band.first + static_cast<unsigned>(position < 0 ? position + band.positions() : position) * band.step;
}

void Tuner::nextStep()
{
    if (++search_->step > bands_.at(search_->band).positions()) {
        judge(-1);
        endSearch();
        return;
    }
    radio_->tune(frequencyAt(*search_, search_->step) * unitOf(search_->band));
    timer_ = thread_.after(config_.settle, [this] {
        withRadio([this] {
            judge(radio_->signal());
            if (search_->purpose == Search::For::kSeek && !search_->found.empty()) {
                endSearch();
            } else {
                nextStep();
            }
        });
    });
}

/// Takes the signal after a step. A plateau may be wide: the station is in its middle.
void Tuner::judge(int signal)
{
    Search& search = *search_;
    if (signal < search.signal && search.isRising &&
        search.signal * 100 >= config_.stationSignal * Radio::kFullSignal) {
        search.found.push_back(frequencyAt(search, (search.plateau + search.step - 1) / 2));
    }
    if (signal != search.signal) {
        search.isRising = signal > search.signal;
        search.signal = signal;
        search.plateau = search.step;
    }
}

void Tuner::endSearch()
{
    const Search search = std::move(*search_);
    const unsigned back = frequency_.at(search.band);
    if (search.purpose != Search::For::kSeek) {
        runtime::report("tuner: stations found: " + std::to_string(search.found.size()));
        bands_.at(search.band).stations = search.found;
    }
    if (search.purpose == Search::For::kScan) {
        playStation(search.band, 0, back);
        return;
    }
    const bool isNew = search.purpose == Search::For::kSeek && !search.found.empty();
    tuneTo(search.band, isNew ? search.found.front() : back);
    tellFrequency();
}

/// Plays the stations of the band one after another, and at last `back`.
void Tuner::playStation(BandID band, std::size_t station, unsigned back)
{
    const auto& stations = bands_.at(band).stations;
    const bool isOver = station >= stations.size();
    tuneTo(band, isOver ? back : stations[station]);
    tellFrequency();
    if (!isOver) {
        timer_ = thread_.after(
            config_.scan, [this, band, station, back] { withRadio([&] { playStation(band, station + 1, back); }); });
    }
}

}  // namespace unit
