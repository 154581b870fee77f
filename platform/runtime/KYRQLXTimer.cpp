#include "KYRQLXTimer.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <mutex>

#include "platform/runtime/TimerService.h"

struct KYRQLXTimer::Impl {
    runtime::TimerService& service = runtime::TimerService::instance();
    std::mutex mutex;
    std::map<int, runtime::TimerService::Id> mapIds;  // by the number of the object, expired ones too; guarded by mutex
};

KYRQLXTimer::KYRQLXTimer() : m_pImpl(std::make_unique<Impl>()) {}

KYRQLXTimer::~KYRQLXTimer()
{
    m_pImpl->service.cancelAllOf(this);
}

int KYRQLXTimer::StartNormalTimer(int id, int interval, TimerType type, LoopType loop)
{
    const bool bKnownType = type == TIMER_MILLISECONDS || type == TIMER_TENTHS_OF_SECOND;
    const bool bKnownLoop = loop == LOOP_ONCE || loop == LOOP_REPEAT;
    if (!bKnownType || !bKnownLoop) {
        return 0;
    }

    const std::chrono::milliseconds unit(type == TIMER_MILLISECONDS ? 1 : 100);
    const std::chrono::milliseconds time = std::max(interval, 1) * unit;
    const auto expire = [this, id] { OnTimerHandleFunc(id); };

    const std::lock_guard lock(m_pImpl->mutex);
    runtime::TimerService::Id& serviceId = m_pImpl->mapIds[id];
    m_pImpl->service.cancel(serviceId);
    serviceId =
        loop == LOOP_ONCE ? m_pImpl->service.after(time, expire, this) : m_pImpl->service.every(time, expire, this);
    return 1;
}

void KYRQLXTimer::KillNormalTimer(int id)
{
    const std::lock_guard lock(m_pImpl->mutex);
    const auto found = m_pImpl->mapIds.find(id);
    if (found == m_pImpl->mapIds.end()) {
        return;
    }
    m_pImpl->service.cancel(found->second);
    m_pImpl->mapIds.erase(found);
}

int KYRQLXTimer::IsNormalTimerActive(int id)
{
    const std::lock_guard lock(m_pImpl->mutex);
    const auto found = m_pImpl->mapIds.find(id);
    return found != m_pImpl->mapIds.end() && m_pImpl->service.isPending(found->second) ? 1 : 0;
}
