#pragma once

#include "KYRUart.h"

/// A receiver attached to the platform's UART client, which it owns.
class KYRAutoTestSkeletonBase : public KYRRmtSkeleton
{
public:
    using KYRRmtSkeleton::MsgDecode;

    /// A chunk from the station; hands it to RouteAutoTestMsg(). The adapter's delivery thread.
    void MsgDecode(unsigned char* pData, int nLength) override;

    virtual void RouteAutoTestMsg(unsigned char* pData, int nLength)
    {
        static_cast<void>(pData);
        static_cast<void>(nLength);
    }

    /// Connects to the UART client and begins to receive, possibly before this call returns.
    void Init();

    /// Disconnects.
    void Exit();

protected:
    KYRUartAdapter m_UartAdapter;
};
