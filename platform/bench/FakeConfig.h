#pragma once

#include <KYRConfig.h>

#include "platform/bench/FakeContext.h"

namespace bench {

/// The head unit's configuration. The service looks keys up for every frame, so neither look-up copies more than it
/// returns.
class FakeConfig : public KYRLibConfigs
{
public:
    explicit FakeConfig(const FakeContext& context) : context_(context) {}

    int GetBool(const char* key) override;
    int GetText(const char* key, std::string& value) override;

private:
    const FakeContext context_;
};

}  // namespace bench
