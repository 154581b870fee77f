#pragma once

#include <KYRSystemMisc.h>

#include "platform/bench/FakeContext.h"

namespace bench {

/// The proxy of the vehicle-data service.
class FakeSystemMisc : public KYRSystemMisc
{
public:
    explicit FakeSystemMisc(const FakeContext& context) : context_(context) {}

    SystemMisc::AntState GetRadioAntState() override;
    SystemMisc::AntState GetDabAntState() override;
    SystemMisc::AntState GetGpsAntState() override;
    int GetState() override;
    void RestoreFactorySettings() override;

private:
    const FakeContext context_;
};

}  // namespace bench
