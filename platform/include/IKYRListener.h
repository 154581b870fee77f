#pragma once

#include <set>

#include "KYRMutex.h"

/// A thread-safe set of listeners of interface T. The registry does not own its listeners: remove a listener before you
/// destroy it.
/// Any thread may add and remove. Hold the registry's lock (LockListener()) while you walk GetListeners(): a removed
/// listener is then never called.
template <class T>
class IKYRListener
{
public:
    IKYRListener() = default;
    virtual ~IKYRListener() = default;
    IKYRListener(const IKYRListener&) = delete;
    IKYRListener& operator=(const IKYRListener&) = delete;

    /// Adds a listener and calls OnListenerAdded(), also if the listener is already in the set. Ignores null.
    virtual void AddListener(T* pListener)
    {
        if (pListener == nullptr)
            return;
        const Lock lock(*this);
        m_setListeners.insert(pListener);
        OnListenerAdded(pListener);
    }

    /// Removes a listener and calls OnListenerRemoved(), also if the listener is not in the set. Ignores null.
    virtual void RemoveListener(T* pListener)
    {
        if (pListener == nullptr)
            return;
        const Lock lock(*this);
        m_setListeners.erase(pListener);
        OnListenerRemoved(pListener);
    }

    /// @returns the set itself, ordered by address. Takes no lock.
    virtual std::set<T*>* GetListeners() { return &m_setListeners; }

    /// @returns the number of listeners. Takes no lock.
    virtual int GetListenerCount() { return static_cast<int>(m_setListeners.size()); }

    virtual void LockListener() { m_csListeners.Lock(); }
    virtual void UnlockListener() { m_csListeners.Unlock(); }

    /// Hooks. The registry holds its lock while they run.
    virtual void OnListenerAdded(T* pListener) { static_cast<void>(pListener); }
    virtual void OnListenerRemoved(T* pListener) { static_cast<void>(pListener); }

private:
    /// Holds the registry's lock, or the lock of a service that overrides LockListener() and UnlockListener().
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
