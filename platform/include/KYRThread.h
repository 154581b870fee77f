#pragma once

#include <memory>

/// A thread of the platform: made first, started later.
class KYRThread
{
public:
    using Entry = void* (*)(void*);

    /// @param nStackSize bytes of stack that the thread asks for; the platform gives at least its own minimum.
    explicit KYRThread(int nStackSize);

    /// Joins a started thread that is not detached; leaves a detached one running.
    ~KYRThread();
    KYRThread(const KYRThread&) = delete;
    KYRThread& operator=(const KYRThread&) = delete;

    /// Nobody will join the thread; its resources go when it ends. Allowed before and after Start().
    void Detach();

    /// Runs `entry(pArgument)` on the new thread. Once per object.
    /// @returns 1, or 0 when the system has no more threads or the thread was started before.
    int Start(Entry entry, void* pArgument);

private:
    struct Impl;
    std::unique_ptr<Impl> m_pImpl;
};
