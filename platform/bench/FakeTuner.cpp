#include "platform/bench/FakeTuner.h"

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "platform/runtime/Listeners.h"

namespace bench {
namespace {

constexpr int kDown = 0;
constexpr int kUp = 1;

/// @returns the next station after `frequency`, continuing at the other end of the band; nothing if there is no
/// station.
std::optional<int> nextStation(std::vector<int> stations, int frequency, int direction)
{
    if (stations.empty()) {
        return std::nullopt;
    }
    std::ranges::sort(stations);
    if (direction == kUp) {
        const auto above = std::ranges::upper_bound(stations, frequency);
        return above == stations.end() ? stations.front() : *above;
    }
    const auto notBelow = std::ranges::lower_bound(stations, frequency);
    return notBelow == stations.begin() ? stations.back() : *std::prev(notBelow);
}

}  // namespace

int FakeTuner::InitInstance()
{
    return state().flag("/tuner/available") ? 1 : 0;
}

KYRTuner::BandID FakeTuner::GetCurrentBand()
{
    return static_cast<BandID>(state().number("/tuner/band"));
}

unsigned int FakeTuner::GetFrequency(BandID band)
{
    return static_cast<unsigned int>(state().numberAt("/tuner/frequency", band).value_or(0));
}

void FakeTuner::Play(BandID band, unsigned int frequency, unsigned int service, int audible)
{
    record("tuner", "Play", {int{band}, frequency, service, audible});
    tune(band, static_cast<int>(frequency));
}

void FakeTuner::SwitchBandRequest(BandID band)
{
    record("tuner", "SwitchBandRequest", {int{band}});
    state().set("/tuner/band", int{band});
}

void FakeTuner::Seek(BandID band, int direction)
{
    record("tuner", "Seek", {int{band}, direction});
    if (direction != kUp && direction != kDown) {
        return;
    }
    const int frequency = state().numberAt("/tuner/frequency", band).value_or(0);
    if (const auto station = nextStation(state().numbersAt("/tuner/stations", band), frequency, direction)) {
        tune(band, *station);
    }
}

void FakeTuner::AutoStore()
{
    record("tuner", "AutoStore");
}

void FakeTuner::Scan(BandID band)
{
    record("tuner", "Scan", {int{band}});
}

void FakeTuner::SwitchRdsAFSetting(unsigned char on)
{
    record("tuner", "SwitchRdsAFSetting", {int{on}});
    state().set("/tuner/rds_af", int{on});
}

void FakeTuner::SwitchRdsTASetting(unsigned char on)
{
    record("tuner", "SwitchRdsTASetting", {int{on}});
    state().set("/tuner/rds_ta", int{on});
}

void FakeTuner::tune(BandID band, int frequency)
{
    state().set("/tuner/frequency/" + std::to_string(band), frequency);
    context_.events.post([this, band, frequency] {
        runtime::tellListeners(*this, [&](IKYRRadioListener& listener) {
            listener.OnFrequencyChanged(band, 0, static_cast<unsigned int>(frequency));
        });
    });
}

}  // namespace bench
