#pragma once

#include <atomic>

#include "IKYRListener.h"

/// Base class of platform services with events. T is the interface of the service's listeners. The event source starts
/// with the first listener and stops with the last one.
template <class T>
class IKYRService : public T, public IKYRListener<T>
{
public:
    ~IKYRService() override { m_nStarted = 0; }

    /// Start and stop the event source. The caller holds the listener lock.
    virtual void InitListener() {}
    virtual void ExitListener() {}

    // Only the count decides: adding the only listener again starts the source again, and removing an unknown listener
    // from an empty service stops it again.
    void OnListenerAdded(T* pListener) override
    {
        static_cast<void>(pListener);
        if (this->GetListenerCount() == 1)
            InitListener();
    }
    void OnListenerRemoved(T* pListener) override
    {
        static_cast<void>(pListener);
        if (this->GetListenerCount() == 0)
            ExitListener();
    }

    // "Start once": to start the service, lock m_csService, call InitInstance() if m_nStarted is 0, and store the
    // result in m_nStarted.
    std::atomic<int> m_nStarted = 0;
    KYRMutex m_csService;
};
