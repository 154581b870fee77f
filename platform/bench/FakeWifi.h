#pragma once

#include <KYRWifi.h>

#include "platform/bench/FakeContext.h"

namespace bench {

/// The Wi-Fi service.
class FakeWifi : public KYRWifi
{
public:
    explicit FakeWifi(const FakeContext& context) : context_(context) {}

    int InitInstance() override;
    std::string GetText() override;

private:
    const FakeContext context_;
};

}  // namespace bench
