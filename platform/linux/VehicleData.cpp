#include "platform/linux/VehicleData.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "platform/linux/FactoryReset.h"
#include "platform/runtime/Listeners.h"
#include "platform/runtime/Report.h"

namespace unit {
namespace {

/// The configuration's keys, by place.
constexpr const char* kInputs[] = {"radio-antenna", "dab-antenna", "gps-antenna", "state", "car-info"};

}  // namespace

VehicleData::VehicleData(const UnitConfig::VehicleData& config, Bus& systemBus, Systemd& systemd, StatusBoard& board,
                         const Kernel& kernel)
    : loop_(systemBus.loop()), systemd_(systemd), resetUnit_(config.resetUnit), parts_(board, "system-misc")
{
    if (config.speed) {
        parts_.add("speed");
        can_.emplace(*config.speed, loop_,
                     CanReader::Events{[this](double value) { setSpeed(value); },
                                       [this](const std::string& reason) {
                                           parts_.set("speed", reason);
                                           if (!reason.empty()) {
                                               setSpeed(0);
                                           }
                                       }},
                     kernel.openCan, kernel.silence);
    }
    if (!resetUnit_.empty()) {
        parts_.add("reset-unit");
        reset_.emplace(systemBus, resetUnit_,
                       SystemdUnit::Events{onStart([this] {
                                               runtime::tellListeners(*this, [](IKYRSystemMiscListener& listener) {
                                                   listener.OnFactoryResetMode();
                                               });
                                           }),
                                           [this](const std::string& reason) { parts_.set("reset-unit", reason); }});
    }
    for (int place = 0; place < kPlaces; ++place) {
        if (const auto input = config.inputs.find(kInputs[place]); input != config.inputs.end()) {
            parts_.add(kInputs[place]);
            isConfigured_[place] = true;
            inputs_[place].emplace(input->second, kernel.ioctl, kernel.takesLines);
        }
    }
    parts_.show();
    if (!config.inputs.empty()) {
        poller_.emplace(kernel.period, [this] { look(); });
    }
}

void VehicleData::RestoreFactorySettings()
{
    if (resetUnit_.empty()) {
        runtime::report("system-misc: expected 'reset-unit' for the factory settings, got none");
        return;
    }
    loop_.post([this] { systemd_.start(resetUnit_); });
}

void VehicleData::look()
{
    Readings readings;
    for (int place = 0; place < kPlaces; ++place) {
        if (inputs_[place]) {
            auto& [value, reason] = readings[place];
            value = inputs_[place]->read(reason).value_or(0);
            // A wrong text that changes all the time is told once.
            const auto withoutText = [](const std::string& said) { return said.substr(0, said.find(", got ")); };
            if (readings_ && withoutText((*readings_)[place].second) == withoutText(reason)) {
                reason = (*readings_)[place].second;
            }
        }
    }
    // The service takes the vehicle information in auto-test mode only, so it has to be told again.
    if (std::exchange(readings_, readings) != readings || inputs_[kCarInfo]) {
        loop_.post([this, readings] { take(readings); });
    }
}

void VehicleData::take(const Readings& readings)
{
    for (int place = 0; place < kPlaces; ++place) {
        const auto& [value, reason] = readings[place];
        if (!isConfigured_[place]) {
            continue;
        }
        parts_.set(kInputs[place], reason);
        const bool isChanged = values_[place].exchange(value) != value;
        const auto state = static_cast<SystemMisc::AntState>(value);
        if (isChanged && place == kRadioAntenna) {
            runtime::tellListeners(
                *this, [state](IKYRSystemMiscListener& listener) { listener.OnRadioAntStateChange(state); });
        } else if (isChanged && place == kGpsAntenna) {
            runtime::tellListeners(*this,
                                   [state](IKYRSystemMiscListener& listener) { listener.OnGpsAntStateChange(state); });
        } else if (place == kCarInfo) {
            _LCarInfo info{};
            info.ucValue = static_cast<unsigned char>(value);
            runtime::tellListeners(*this,
                                   [info](IKYRSystemMiscListener& listener) { listener.OnLCarInfoChange(info); });
        }
    }
}

void VehicleData::setSpeed(double speed)
{
    constexpr double kMost = std::numeric_limits<unsigned>::max();
    const auto now = static_cast<unsigned>(std::clamp(std::round(speed), 0.0, kMost));
    if (std::exchange(speed_, now) != now) {
        runtime::tellListeners(*this, [now](IKYRSystemMiscListener& listener) { listener.OnCarSpeedChange(now); });
    }
}

}  // namespace unit
