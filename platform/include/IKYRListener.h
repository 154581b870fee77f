#pragma once

#include <set>

#include "KYRMutex.h"

/// A thread-safe set of listeners of interface T. The registry never owns a listener: whoever adds one removes it
/// before it dies.
/// Any thread may add and remove. Whoever walks GetListeners() holds the registry's lock meanwhile (LockListener()),
/// so a listener that has been removed is not called any more.
template <class T>
class IKYRListener
{
public:
    IKYRListener() = default;
    virtual ~IKYRListener() = default;
    IKYRListener(const IKYRListener&) = delete;
    IKYRListener& operator=(const IKYRListener&) = delete;

    /// Adds a listener; one that is there already stays once, null is ignored. OnListenerAdded() runs in either case
    /// but for null.
    virtual void AddListener(T* pListener)
    {
        if (pListener == nullptr)
            return;
        const Lock lock(*this);
        m_setListeners.insert(pListener);
        OnListenerAdded(pListener);
    }

    /// Removes a listener; null is ignored. OnListenerRemoved() runs also for one that was not there.
    virtual void RemoveListener(T* pListener)
    {
        if (pListener == nullptr)
            return;
        const Lock lock(*this);
        m_setListeners.erase(pListener);
        OnListenerRemoved(pListener);
    }

    /// The set itself, ordered by address; takes no lock.
    virtual std::set<T*>* GetListeners() { return &m_setListeners; }

    /// Number of listeners; takes no lock.
    virtual int GetListenerCount() { return static_cast<int>(m_setListeners.size()); }

    virtual void LockListener() { m_csListeners.Lock(); }
    virtual void UnlockListener() { m_csListeners.Unlock(); }

    /// Hooks; both run while the lock is held.
    virtual void OnListenerAdded(T* pListener) { static_cast<void>(pListener); }
    virtual void OnListenerRemoved(T* pListener) { static_cast<void>(pListener); }

private:
    /// Holds the lock of the registry, or the one that a service has put in its place.
    class Lock
    {
    public:
        explicit Lock(IKYRListener& registry) : m_registry(registry) { m_registry.LockListener(); }
        ~Lock() { m_registry.UnlockListener(); }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        IKYRListener& m_registry;
    };

    std::set<T*> m_setListeners;  // guarded by m_csListeners
    KYRMutex m_csListeners;
};
