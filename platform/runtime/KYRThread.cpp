#include "KYRThread.h"

#include <pthread.h>

#include <algorithm>
#include <mutex>

#include "KYRMutex.h"

namespace {

/// Head-unit code asks for stacks of a few dozen KiB. Workstation libraries need more, sanitizers above all.
constexpr std::size_t kMinimumStack = std::size_t{512} * 1024;

}  // namespace

struct KYRThread::Impl {
    const std::size_t nStackSize;
    std::mutex mutex{};
    pthread_t thread{};      // valid once bStarted; guarded by mutex
    bool bStarted = false;   // guarded by mutex
    bool bDetached = false;  // guarded by mutex
};

KYRThread::KYRThread(int nStackSize)
    : m_pImpl(new Impl{std::max(static_cast<std::size_t>(std::max(nStackSize, 0)), kMinimumStack)})
{
}

KYRThread::~KYRThread()
{
    if (!m_pImpl->bStarted || m_pImpl->bDetached) {
        return;
    }
    // An object that is destroyed on its own thread cannot wait for it.
    if (pthread_equal(m_pImpl->thread, pthread_self()) != 0) {
        pthread_detach(m_pImpl->thread);
    } else {
        pthread_join(m_pImpl->thread, nullptr);
    }
}

void KYRThread::Detach()
{
    const std::lock_guard lock(m_pImpl->mutex);
    if (m_pImpl->bDetached) {
        return;
    }
    m_pImpl->bDetached = true;
    if (m_pImpl->bStarted) {
        pthread_detach(m_pImpl->thread);
    }
}

int KYRThread::Start(Entry entry, void* pArgument)
{
    const std::lock_guard lock(m_pImpl->mutex);
    if (m_pImpl->bStarted) {
        return 0;
    }

    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, m_pImpl->nStackSize);
    if (m_pImpl->bDetached) {
        pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    }
    const int nError = pthread_create(&m_pImpl->thread, &attributes, entry, pArgument);
    pthread_attr_destroy(&attributes);
    m_pImpl->bStarted = nError == 0;
    return m_pImpl->bStarted ? 1 : 0;
}

KYRMutex::KYRMutex()
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&m_mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

KYRMutex::~KYRMutex()
{
    pthread_mutex_destroy(&m_mutex);
}

void KYRMutex::Lock()
{
    pthread_mutex_lock(&m_mutex);
}

void KYRMutex::Unlock()
{
    pthread_mutex_unlock(&m_mutex);
}
