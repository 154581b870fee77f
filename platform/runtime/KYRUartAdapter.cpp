#include <atomic>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "KYRMutex.h"
#include "KYRUart.h"
#include "platform/runtime/DeliveryTurns.h"
#include "platform/runtime/Report.h"
#include "platform/runtime/Wire.h"

namespace runtime {
namespace {

std::atomic<Wire*> theWire = nullptr;

}  // namespace

void installWire(Wire* wire)
{
    theWire = wire;
}

Wire* installedWire()
{
    return theWire;
}

}  // namespace runtime

struct KYRUartAdapter::Impl {
    void AttachWhenWanted();
    void Deliver(std::span<std::uint8_t> chunk);
    using SkeletonList = std::vector<KYRRmtSkeleton*>;
    std::shared_ptr<const SkeletonList> Skeletons();

    std::atomic<runtime::Wire*> pWire = nullptr;
    KYRMutex csSkeletons;
    std::shared_ptr<const SkeletonList> pSkeletons = std::make_shared<SkeletonList>();  // guarded by csSkeletons
    bool bAttached = false;                                                             // guarded by csSkeletons
};

KYRUartAdapter::KYRUartAdapter() : m_pImpl(std::make_unique<Impl>()) {}

KYRUartAdapter::~KYRUartAdapter()
{
    Exit();
}

int KYRUartAdapter::Init(const KYRRmt::UartClientInfo&)
{
    m_pImpl->pWire = runtime::installedWire();
    m_pImpl->AttachWhenWanted();
    return m_pImpl->pWire != nullptr ? 1 : 0;
}

int KYRUartAdapter::Exit()
{
    bool bDetach = false;
    {
        const KYRAutoLock lock(m_pImpl->csSkeletons);
        bDetach = std::exchange(m_pImpl->bAttached, false);
    }
    runtime::Wire* const pWire = m_pImpl->pWire.exchange(nullptr);
    // Without the lock: a chunk that is being delivered may wait for it.
    if (bDetach) {
        pWire->detach();
    }
    return 1;
}

void KYRUartAdapter::RegisterSkeleton(KYRRmtSkeleton* pSkeleton)
{
    if (pSkeleton == nullptr) {
        return;
    }
    {
        const KYRAutoLock lock(m_pImpl->csSkeletons);
        auto pLonger = std::make_shared<Impl::SkeletonList>(*m_pImpl->pSkeletons);
        pLonger->push_back(pSkeleton);
        m_pImpl->pSkeletons = std::move(pLonger);
    }
    m_pImpl->AttachWhenWanted();
}

int KYRUartAdapter::SendAutoTestCommand(KYRRmtParameter* pParameter)
{
    runtime::Wire* const pWire = m_pImpl->pWire;
    if (pWire == nullptr || pParameter == nullptr) {
        return 0;
    }
    return pWire->send({pParameter->m_ucData, pParameter->m_ucLength}) ? 1 : 0;
}

void KYRUartAdapter::Impl::AttachWhenWanted()
{
    runtime::Wire* const pConnected = pWire;
    {
        const KYRAutoLock lock(csSkeletons);
        if (pConnected == nullptr || pSkeletons->empty() || bAttached) {
            return;
        }
        bAttached = true;
    }
    pConnected->attach([this](std::span<std::uint8_t> chunk) { Deliver(chunk); });
}

void KYRUartAdapter::Impl::Deliver(std::span<std::uint8_t> chunk)
{
    const runtime::DeliveryTurns::Turn turn(runtime::DeliveryTurns::instance());
    const auto pDeliverTo = Skeletons();
    for (KYRRmtSkeleton* const pSkeleton : *pDeliverTo) {
        runtime::runGuarded("a chunk's delivery has failed",
                            [&] { pSkeleton->MsgDecode(chunk.data(), static_cast<int>(chunk.size())); });
    }
}

std::shared_ptr<const KYRUartAdapter::Impl::SkeletonList> KYRUartAdapter::Impl::Skeletons()
{
    // The list does not change any more, so callers need no lock while they call. A skeleton outlives its adapter.
    const KYRAutoLock lock(csSkeletons);
    return pSkeletons;
}
