#pragma once

#include <memory>

/// A thread of the platform. Start() starts it.
class KYRThread
{
public:
    using Entry = void* (*)(void*);

    /// @param nStackSize requested stack size in bytes; the platform gives at least its own minimum.
    explicit KYRThread(int nStackSize);

    /// Joins a started thread unless it is detached; a detached thread goes on.
    ~KYRThread();
    KYRThread(const KYRThread&) = delete;
    KYRThread& operator=(const KYRThread&) = delete;

    /// Detaches the thread: it releases its resources when it ends. Allowed before and after Start().
    void Detach();

    /// Runs `entry(pArgument)` on the new thread. Once per object.
    /// @returns 1, or 0 if the system has no more threads or the thread was started before.
    int Start(Entry entry, void* pArgument);

private:
    struct Impl;
    std::unique_ptr<Impl> m_pImpl;
};
