// The CAN box: a handshake on a timer, requests for speed and parking state, and the parser of its short frames:
//
//     2E  start
//     tt  type: 41 speed, 24 parking
//     dd  number of data bytes
//     ..  data
//     xx  trailing byte, not examined
//
// All of it is idle: nothing starts timer 101, fills the receive buffer or calls the parser.

#include <algorithm>

#include "engineering/UARTMgr/KYRUARTManage.h"
#include "engineering/base/Outlets.h"

namespace {

constexpr int kPollTimer = 101;
constexpr int kAckTimer = 100;
constexpr int kAckInterval = 100;  // in the platform timer's unit for its type 0
constexpr unsigned char kAcknowledged = 0xFF;
constexpr unsigned char kMaxRetries = 3;

constexpr unsigned char kNotConnected = 0;
constexpr unsigned char kConnected = 1;

constexpr unsigned char kStart = 0x2E;
constexpr unsigned char kSpeedType = 0x41;
constexpr unsigned char kParkingType = 0x24;
constexpr std::size_t kDataOffset = 3;

constexpr unsigned char kConnectCommand = 0x81;
constexpr unsigned char kRequestCommand = 0x90;

}  // namespace

KYRUARTManage::~KYRUARTManage()
{
    KillNormalTimer(kPollTimer);
    KillNormalTimer(kAckTimer);  // an expiry must not reach an object that is half destroyed
}

void KYRUARTManage::OnTimerHandleFunc(int id)
{
    if (id == kPollTimer && m_ucCANLinkState == kNotConnected) {
        RequestConnected();
        if (IsNormalTimerActive(kAckTimer) == 0)
            StartNormalTimer(kAckTimer, kAckInterval, TIMER_MILLISECONDS, LOOP_REPEAT);
    } else if (id == kPollTimer && m_ucCANLinkState == kConnected) {
        RequestSpeed();
        RequestParking();
    } else if (id == kAckTimer) {
        if (m_iACKStatus == kAcknowledged) {
            m_ucCANLinkState = kConnected;
            m_ucCANRetryCount = 0;
            KillNormalTimer(kAckTimer);
        } else {
            ++m_ucCANRetryCount;
        }
        if (m_ucCANRetryCount == kMaxRetries) {
            m_ucCANRetryCount = 0;
            KillNormalTimer(kAckTimer);
        }
    }
}

void KYRUARTManage::RequestConnected()
{
    SendCANCommands(kConnectCommand, {0x01});
}

void KYRUARTManage::RequestSpeed()
{
    SendCANCommands(kRequestCommand, {kSpeedType, 0x02});
}

void KYRUARTManage::RequestParking()
{
    SendCANCommands(kRequestCommand, {kParkingType});
}

// Weak: a platform with a transport defines it, and so do the tests.
__attribute__((weak)) void KYRUARTManage::SendCANCommands(unsigned char, std::vector<unsigned char>) {}

void KYRUARTManage::ParseCANData()
{
    auto start = std::find(m_vCANRecvBuf.begin(), m_vCANRecvBuf.end(), kStart);
    for (; start != m_vCANRecvBuf.end(); start = std::find(start + 1, m_vCANRecvBuf.end(), kStart)) {
        const std::size_t nAfter = static_cast<std::size_t>(m_vCANRecvBuf.end() - start);
        // Are the data and the trailing byte complete?
        if (nAfter <= kDataOffset || nAfter <= kDataOffset + start[2])
            continue;
        const unsigned char ucType = start[1];
        const unsigned char ucLength = start[2];
        if (ucType == kSpeedType || ucType == kParkingType)
            emit_uart_data_changed_signal(kStart, ucType, &start[kDataOffset], ucLength);
        m_vCANRecvBuf.erase(m_vCANRecvBuf.begin(), start + static_cast<std::ptrdiff_t>(kDataOffset) + ucLength + 1);
        return;
    }
}
