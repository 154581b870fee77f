#pragma once

#include <atomic>

#include "IKYRListener.h"

/// Base of the platform's services that have events. T is the interface of the service's listeners. The event source
/// is started when the first listener arrives and stopped when the last one leaves.
template <class T>
class IKYRService : public T, public IKYRListener<T>
{
public:
    ~IKYRService() override { m_nStarted = 0; }

    /// Starts and stops the event source; both run while the listener lock is held.
    virtual void InitListener() {}
    virtual void ExitListener() {}

    // The count alone decides, so that adding the only listener a second time starts the source again, and removing a
    // stranger from an empty service stops it again.
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

    // "Start once": whoever wants the service running locks m_csService, calls InitInstance() when m_nStarted is 0
    // and stores its result there.
    std::atomic<int> m_nStarted = 0;
    KYRMutex m_csService;
};
