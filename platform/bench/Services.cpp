#include "platform/bench/Services.h"

namespace bench {

Services::Services(const FakeContext& shared, runtime::TimerService& timers)
    : context(shared)
    , androidAuto(shared)
    , appManager(shared, timers)
    , audio(shared)
    , bluetooth(shared)
    , config(shared)
    , deviceApp(shared)
    , fileManager(shared)
    , power(shared)
    , sourceManager(shared)
    , system(shared)
    , systemInfo(shared)
    , systemMisc(shared)
    , systemUpdate(shared)
    , tuner(shared)
    , wifi(shared)
{
}

}  // namespace bench
