#pragma once

#include <atomic>

#include "KYRMutex.h"

/// The process's one instance of T, created on first use. Only DestroyInstance() destroys it.
template <class T>
class KYRSingleton
{
public:
    /// Any thread. The first call constructs the instance while others wait. If the constructor throws, the caller gets
    /// the exception, and the next call tries again.
    static T* GetInstance()
    {
        if (T* const pInstance = ms_pSingleton.load(std::memory_order_acquire))
            return pInstance;
        KYRAutoLock lock(ms_cs);
        if (ms_pSingleton.load(std::memory_order_relaxed) == nullptr)
            ms_pSingleton.store(new T, std::memory_order_release);
        return ms_pSingleton.load(std::memory_order_relaxed);
    }

    /// Destroys the instance, if there is one; the next GetInstance() makes a new one. The instance must not be in use.
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
