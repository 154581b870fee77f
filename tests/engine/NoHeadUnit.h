#pragma once

#include "platform/bench/HeadUnit.h"

/// Leaves the platform's getters without a head unit: every one gives null. The services that the engine holds stay.
inline void takeTheHeadUnitAway()
{
    bench::HeadUnit other;
    other.install();
}
