#pragma once

#include <vector>

namespace runtime {

/// Calls `tell` with every listener of a service, except those that are removed meanwhile. The registry stays locked
/// while the listeners run, as IKYRListener promises: a removed listener is not running.
template <class Registry, class Tell>
void tellListeners(Registry& registry, Tell tell)
{
    struct Lock {
        explicit Lock(Registry& locked) : registry(locked) { registry.LockListener(); }
        ~Lock() { registry.UnlockListener(); }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;
        Registry& registry;
    } const lock(registry);

    const auto& listeners = *registry.GetListeners();
    for (auto* const listener : std::vector(listeners.begin(), listeners.end())) {
        if (listeners.contains(listener)) {
            tell(*listener);
        }
    }
}

}  // namespace runtime
