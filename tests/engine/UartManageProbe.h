#pragma once

#include <vector>

#include "engineering/UARTMgr/KYRUARTManage.h"

/// Reaches what only tests of the link manager's idle parts need.
class UartManageProbe
{
public:
    static std::vector<unsigned char>& canBuffer(KYRUARTManage& link) { return link.m_vCANRecvBuf; }
    static unsigned char& canState(KYRUARTManage& link) { return link.m_ucCANLinkState; }
    static unsigned char& canRetries(KYRUARTManage& link) { return link.m_ucCANRetryCount; }
    static int& port(KYRUARTManage& link) { return link.m_nPortFd; }
};
