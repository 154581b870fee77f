#include "engineering/UARTMgr/KYRAutoTestSkeletonBase.h"

#include "engineering/base/Log.h"

namespace {

constexpr int kClientType = 0;
constexpr int kTestUartClient = 11;

}  // namespace

void KYRAutoTestSkeletonBase::MsgDecode(unsigned char* pData, int nLength)
{
    KYR_LOG_INFO("MsgDecode, msg_length = %d", nLength);
    RouteAutoTestMsg(pData, nLength);
}

void KYRAutoTestSkeletonBase::Init()
{
    KYR_LOG_INFO("%s()", __func__);
    const KYRRmt::UartClientInfo info{kClientType, kTestUartClient, "", ""};
    m_UartAdapter.Init(info);
    m_UartAdapter.RegisterSkeleton(this);
}

void KYRAutoTestSkeletonBase::Exit()
{
    m_UartAdapter.Exit();
}
