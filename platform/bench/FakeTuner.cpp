#include "platform/bench/FakeTuner.h"

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "platform/bench/Services.h"

namespace bench {
namespace {

constexpr const char* kTunerService = "tuner";
constexpr int kDown = 0;
constexpr int kUp = 1;

/// @returns the station next to `frequency`, round at the band's end; nothing without stations.
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
    return context_.state.flag("/tuner/available") ? 1 : 0;
}

KYRTuner::BandID FakeTuner::GetCurrentBand()
{
    return static_cast<BandID>(context_.state.number("/tuner/band"));
}

unsigned int FakeTuner::GetFrequency(BandID band)
{
    return static_cast<unsigned int>(context_.state.numberAt("/tuner/frequency", band).value_or(0));
}

void FakeTuner::Play(BandID band, unsigned int frequency, unsigned int service, int audible)
{
    context_.calls.add(kTunerService, "Play", {int{band}, frequency, service, audible});
    tune(band, static_cast<int>(frequency));
}

void FakeTuner::SwitchBandRequest(BandID band)
{
    context_.calls.add(kTunerService, "SwitchBandRequest", {int{band}});
    context_.state.set("/tuner/band", int{band});
}

void FakeTuner::Seek(BandID band, int direction)
{
    context_.calls.add(kTunerService, "Seek", {int{band}, direction});
    if (direction != kUp && direction != kDown) {
        return;
    }
    const int frequency = context_.state.numberAt("/tuner/frequency", band).value_or(0);
    if (const auto station = nextStation(context_.state.numbersAt("/tuner/stations", band), frequency, direction)) {
        tune(band, *station);
    }
}

void FakeTuner::AutoStore()
{
    context_.calls.add(kTunerService, "AutoStore", {});
}

void FakeTuner::Scan(BandID band)
{
    context_.calls.add(kTunerService, "Scan", {int{band}});
}

void FakeTuner::SwitchRdsAFSetting(unsigned char on)
{
    context_.calls.add(kTunerService, "SwitchRdsAFSetting", {int{on}});
    context_.state.set("/tuner/rds_af", int{on});
}

void FakeTuner::SwitchRdsTASetting(unsigned char on)
{
    context_.calls.add(kTunerService, "SwitchRdsTASetting", {int{on}});
    context_.state.set("/tuner/rds_ta", int{on});
}

void FakeTuner::tune(BandID band, int frequency)
{
    context_.state.set("/tuner/frequency/" + std::to_string(band), frequency);
    context_.events.post([this, band, frequency] {
        tellListeners(*this, [&](IKYRRadioListener& listener) {
            listener.OnFrequencyChanged(band, 0, static_cast<unsigned int>(frequency));
        });
    });
}

}  // namespace bench

KYRTuner* KYR_GetTunerService()
{
    return bench::installedService(&bench::Services::tuner, "/tuner/available");
}
