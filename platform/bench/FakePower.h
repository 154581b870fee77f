#pragma once

#include <KYRPower.h>

#include "platform/bench/FakeContext.h"

namespace bench {

/// The system power proxy. It takes the state as far as the shut-down, and never ends the process.
class FakePower : public KYRPower
{
public:
    explicit FakePower(const FakeContext& context) : context_(context) {}

    void SetPowerState(PowerState state) override;
    int GetPowerState() override;
    int GetPowerStatus() override;
    void SwitchPowerMode(int on) override;
    int GetCurScreenLightType() override;
    void RestartSystem() override;

private:
    const FakeContext context_;
};

}  // namespace bench
