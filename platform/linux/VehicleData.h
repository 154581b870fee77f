#pragma once

#include <KYRSystemMisc.h>

#include <array>
#include <atomic>
#include <chrono>
#include <optional>
#include <string>

#include "platform/linux/ApplicationManager.h"
#include "platform/linux/CanSignal.h"
#include "platform/linux/Input.h"
#include "platform/linux/Status.h"
#include "platform/linux/UnitConfig.h"

namespace unit {

/// Vehicle data: the speed from a CAN bus, antennas and states from GPIO lines and files, the reset as a systemd unit.
/// What cannot be read is 0: an antenna is not good as long as nothing says so.
class VehicleData : public KYRSystemMisc
{
public:
    /// What the kernel does. Tests replace it.
    struct Kernel {
        OpenCan openCan = unit::openCan;
        Input::Ioctl ioctl = Input::systemIoctl;
        std::chrono::milliseconds period = std::chrono::seconds(1);  ///< between two looks at the inputs
        bool takesLines = true;  ///< whether to request the GPIO lines; else only to look whether they are there
        std::chrono::milliseconds silence = CanReader::kSilence;  ///< of the CAN bus until the speed is not there
    };

    VehicleData(const UnitConfig::VehicleData& config, Bus& systemBus, Systemd& systemd, StatusBoard& board,
                const Kernel& kernel);

    SystemMisc::AntState GetRadioAntState() override { return antenna(kRadioAntenna); }
    SystemMisc::AntState GetDabAntState() override { return antenna(kDabAntenna); }
    SystemMisc::AntState GetGpsAntState() override { return antenna(kGpsAntenna); }
    int GetState() override { return values_[kState]; }
    void RestoreFactorySettings() override;

private:
    enum Place { kRadioAntenna, kDabAntenna, kGpsAntenna, kState, kCarInfo, kPlaces };

    /// The value and why there is none, by place.
    using Readings = std::array<std::pair<int, std::string>, kPlaces>;

    SystemMisc::AntState antenna(Place place) const { return static_cast<SystemMisc::AntState>(values_[place].load()); }
    void look();
    void take(const Readings& readings);
    void setSpeed(double speed);

    Loop& loop_;
    Systemd& systemd_;
    const std::string resetUnit_;
    std::array<bool, kPlaces> isConfigured_{};  // constant after construction
    std::array<std::atomic<int>, kPlaces> values_{};

    // Of the loop.
    unsigned speed_ = 0;
    PartsStatus parts_;
    std::optional<CanReader> can_;
    std::optional<SystemdUnit> reset_;

    // Of the poller, which ends first.
    std::array<std::optional<Input>, kPlaces> inputs_;
    std::optional<Readings> readings_;
    std::optional<Poller> poller_;
};

}  // namespace unit
