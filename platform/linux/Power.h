#pragma once

#include <KYRPower.h>

#include <atomic>

#include "platform/linux/ApplicationManager.h"
#include "platform/linux/Bus.h"
#include "platform/linux/Status.h"
#include "platform/linux/UnitConfig.h"

namespace unit {

/// Power over logind. Stock Linux has no power states beside on and off: numbers come from the configuration, and
/// standby is a systemd unit.
class Power : public KYRPower
{
public:
    Power(UnitConfig::Power config, Bus& systemBus, Systemd& systemd, StatusBoard& board);

    /// PS_SHUT_DOWN switches the unit off; other states are refused with a report.
    void SetPowerState(PowerState eState) override;
    int GetPowerState() override { return config_.state; }
    int GetPowerStatus() override { return isOn_ ? POWER_STATUS_ON : POWER_STATUS_OFF; }

    /// Stops (on) or starts (off) the unit of standby.
    void SwitchPowerMode(int nOn) override;
    int GetCurScreenLightType() override { return config_.lightType; }
    void RestartSystem() override;

private:
    void askLogind(const char* method);

    const UnitConfig::Power config_;
    Bus& bus_;
    std::atomic<bool> isOn_ = true;
    Systemd& systemd_;
    BusObject logind_;
};

}  // namespace unit
