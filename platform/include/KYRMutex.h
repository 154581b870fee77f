#pragma once

#include <pthread.h>

/// The platform's recursive mutex: the thread that holds it may lock it again.
class KYRMutex
{
public:
    KYRMutex();
    ~KYRMutex();
    KYRMutex(const KYRMutex&) = delete;
    KYRMutex& operator=(const KYRMutex&) = delete;

    void Lock();
    void Unlock();

private:
    pthread_mutex_t m_mutex;
};

using KYRCriticalSection = KYRMutex;

/// Holds a mutex from construction to the end of the scope.
class KYRAutoLock
{
public:
    explicit KYRAutoLock(KYRMutex& mutex) : m_mutex(mutex) { m_mutex.Lock(); }
    ~KYRAutoLock() { m_mutex.Unlock(); }
    KYRAutoLock(const KYRAutoLock&) = delete;
    KYRAutoLock& operator=(const KYRAutoLock&) = delete;

private:
    KYRMutex& m_mutex;
};
