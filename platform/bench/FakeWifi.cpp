#include "platform/bench/FakeWifi.h"

#include "platform/bench/Services.h"

namespace bench {

int FakeWifi::InitInstance()
{
    return context_.state.flag("/wifi/available") ? 1 : 0;
}

std::string FakeWifi::GetText()
{
    return context_.state.text("/wifi/text");
}

}  // namespace bench

KYRWifi* KYR_GetWifiService()
{
    return bench::installedService(&bench::Services::wifi, "/wifi/available");
}
