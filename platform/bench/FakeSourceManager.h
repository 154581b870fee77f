#pragma once

#include <IKYRListener.h>
#include <KYRSource.h>

#include "platform/bench/FakeContext.h"

namespace bench {

/// The audio source manager, which KYRSource's operations reach.
class FakeSourceManager : public IKYRListener<IKYRSourceListener>
{
public:
    explicit FakeSourceManager(const FakeContext& context) : context_(context) {}

    /// @returns 1 for a source that can be had, else 0.
    int request(int source, KYRSource::AudioGainType gain);
    KYRSource::SourceID current() const;

private:
    const FakeContext context_;
};

}  // namespace bench
