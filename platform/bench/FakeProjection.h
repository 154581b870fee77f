#pragma once

#include <KYRAndroidAuto.h>
#include <KYRCarPlay.h>
#include <KYRDeviceApp.h>

#include "platform/bench/FakeContext.h"

namespace bench {

/// The CarPlay service: nothing but its events.
class FakeCarPlay : public KYRCarPlay
{
};

/// The proxy of the Android Auto service.
class FakeAndroidAuto : public KYRAndroidAuto
{
public:
    explicit FakeAndroidAuto(const FakeContext& context) : context_(context) {}

    int GetState() override;

private:
    const FakeContext context_;
};

/// The proxy of the device-app service.
class FakeDeviceApp : public KYRDeviceApp
{
public:
    explicit FakeDeviceApp(const FakeContext& context) : context_(context) {}

    int InitInstance() override;
    void SelectConnection(int connection, int option) override;

private:
    const FakeContext context_;
};

}  // namespace bench
