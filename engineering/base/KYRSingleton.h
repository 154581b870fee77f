#pragma once

#include <atomic>

#include "KYRMutex.h"

/// The process's one instance of T, created on first use and never destroyed but by DestroyInstance().
template <class T>
class KYRSingleton
{
public:
    /// Any thread. The first call constructs the instance while others wait; what the constructor throws passes
    /// through, and the next call tries again.
    static T* GetInstance()
    {
        if (T* const pInstance = ms_pSingleton.load(std::memory_order_acquire))
            return pInstance;
        KYRAutoLock lock(ms_cs);
        if (ms_pSingleton.load(std::memory_order_relaxed) == nullptr)
            ms_pSingleton.store(new T, std::memory_order_release);
        return ms_pSingleton.load(std::memory_order_relaxed);
    }

    /// Destroys the instance, if there is one; the next GetInstance() makes a new one. Nobody may be using it.
    static void DestroyInstance()
    {
        KYRAutoLock lock(ms_cs);
        delete ms_pSingleton.load(std::memory_order_relaxed);
        ms_pSingleton.store(nullptr, std::memory_order_release);
    }

private:
    inline static std::atomic<T*> ms_pSingleton = nullptr;
    inline static KYRCriticalSection ms_cs;
};
