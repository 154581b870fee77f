#include "platform/bench/FakeConfig.h"

#include "platform/bench/Services.h"

namespace bench {

int FakeConfig::GetBool(const char* key)
{
    return context_.state.configFlag(key).value_or(false) ? 1 : 0;
}

int FakeConfig::GetText(const char* key, std::string& value)
{
    auto text = context_.state.configText(key);
    if (!text) {
        return 0;
    }
    value = std::move(*text);
    return 1;
}

}  // namespace bench

KYRLibConfigs* GetLibConfigs()
{
    bench::Services* const services = bench::installedServices();
    return services == nullptr ? nullptr : &services->config;
}
