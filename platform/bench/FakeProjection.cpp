#include "platform/bench/FakeProjection.h"

#include "platform/bench/Services.h"

namespace bench {

int FakeAndroidAuto::GetState()
{
    return context_.state.number("/android_auto/state");
}

int FakeDeviceApp::InitInstance()
{
    return 1;
}

void FakeDeviceApp::SelectConnection(int connection, int option)
{
    context_.calls.add("device_app", "SelectConnection", {connection, option});
}

}  // namespace bench

KYRCarPlay* KYR_GetCarPlayService()
{
    bench::Services* const services = bench::installedServices();
    return services == nullptr ? nullptr : &services->carPlay;
}

KYRAndroidAuto* KYR_GetAAProxy()
{
    bench::Services* const services = bench::installedServices();
    return services == nullptr ? nullptr : &services->androidAuto;
}

KYRDeviceApp* KYR_GetDeviceAppProxy()
{
    bench::Services* const services = bench::installedServices();
    return services == nullptr ? nullptr : &services->deviceApp;
}
