#include "platform/bench/FakeSourceManager.h"

#include <algorithm>

#include "platform/bench/Services.h"

namespace bench {

int FakeSourceManager::request(int source, KYRSource::AudioGainType gain)
{
    context_.calls.add("source", "Request", {source, int{gain}});
    const auto available = context_.state.numbers("/source/available");
    if (std::ranges::find(available, source) == available.end()) {
        return 0;
    }
    context_.state.set("/source/current", source);
    return 1;
}

KYRSource::SourceID FakeSourceManager::current() const
{
    return static_cast<KYRSource::SourceID>(context_.state.number("/source/current"));
}

}  // namespace bench

// The source manager runs in the process of the bench: there is no client to start.
void KYRSource::StartService() {}

int KYRSource::Request(int nSourceId, AudioGainType eGain)
{
    bench::Services* const services = bench::installedServices();
    return services == nullptr ? 0 : services->sourceManager.request(nSourceId, eGain);
}

KYRSource::SourceID KYRSource::GetCurrentSource(SourceType)
{
    bench::Services* const services = bench::installedServices();
    return services == nullptr ? SOURCE_NONE : services->sourceManager.current();
}

void KYRSource::AddListener(IKYRSourceListener* pListener)
{
    if (bench::Services* const services = bench::installedServices()) {
        services->sourceManager.AddListener(pListener);
    }
}

void KYRSource::RemoveListener(IKYRSourceListener* pListener)
{
    if (bench::Services* const services = bench::installedServices()) {
        services->sourceManager.RemoveListener(pListener);
    }
}
