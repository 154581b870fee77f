#include "engineering/UARTMgr/KYRUARTManage.h"

#include <cstdio>
#include <exception>
#include <string>
#include <utility>

#include "engineering/autotest/KYRAutoTest.h"
#include "engineering/base/Config.h"
#include "engineering/base/KYRSingleton.h"
#include "engineering/base/Log.h"
#include "engineering/base/Outlets.h"

std::atomic<int> m_bIsCPTest = 0;
std::atomic<unsigned char> m_iACKStatus = 0;

namespace {

constexpr int kClientType = 0;
constexpr int kTestUartClient = 11;
constexpr int kMostPrinted = 170;
constexpr const char* kDigits = "0123456789ABCDEF";

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

KYRUARTManage::KYRUARTManage()
{
    KYR_LOG_INFO("[rkb] UARTManage::UARTManage() created!!!");
    // Before the first frame: the engine answers through it. The singleton, so that an answer waits for this
    // constructor.
    g_pSendToStation = [](unsigned char cmd_one, unsigned char cmd_two, std::vector<unsigned char> param) {
        KYRSingleton<KYRUARTManage>::GetInstance()->SendData(cmd_one, cmd_two, std::move(param));
    };
    Init();
    m_bIsCPTest = ConfigFlag(kEnableCpTestKey) ? 1 : 0;
    KYR_LOG_INFO("UARTManage() m_bIsCPTest = %d", m_bIsCPTest.load());
    // The engine must exist before the first frame needs it.
    KYRSingleton<KYRAutoTest>::GetInstance();
}

void KYRUARTManage::RouteAutoTestMsg(unsigned char* pData, int nLength)
{
    if (nLength > 0) {
        const std::size_t nDropped = m_vRecvBuf.append({pData, static_cast<std::size_t>(nLength)});
        if (nDropped > 0)
            KYR_LOG_WARN("receive buffer full, %zu bytes that begin no frame dropped", nDropped);
    }
    ParseData();
}

void KYRUARTManage::ParseData()
{
    if (ConfigFlag(kOpenDebugKey)) {
        const auto bytes = m_vRecvBuf.bytes();
        PrintData("[auto test][engineering]ParseData", bytes.data(), static_cast<int>(bytes.size()));
    }
    if (m_vRecvBuf.worthParsing()) {
        while (auto frame = m_vRecvBuf.next())
            HandleFrame(*frame);
    }
    KYR_LOG_INFO("- End");
}

void KYRUARTManage::HandleFrame(protocol::ReceivedFrame& frame)
{
    KYR_LOG_INFO("[rkb] ParseData, checksum_param = %x", frame.receivedChecksum);
    if (frame.checksumHolds) {
        // A command that throws must not end the delivery thread.
        try {
            HandleCommands(frame.cmdOne, frame.cmdTwo, frame.area, frame.length - 2);
        } catch (const std::exception& error) {
            KYR_LOG_ERROR("command 0x%x 0x%x ended by an exception: %s", frame.cmdOne, frame.cmdTwo, error.what());
        } catch (...) {
            KYR_LOG_ERROR("command 0x%x 0x%x ended by an unknown exception", frame.cmdOne, frame.cmdTwo);
        }
    } else {
        KYR_LOG_INFO("checksum_param != check_sum");
    }
    KYR_LOG_INFO("[rkb] ParseData End, m_vRecvBuf.size() = %d", static_cast<int>(m_vRecvBuf.size()));
}

void KYRUARTManage::HandleCommands(unsigned char cmd_one, unsigned char cmd_two, unsigned char* param, int param_len)
{
    KYR_LOG_DEBUG("KYRUARTManage::HandleCommands, cmd_one = 0x%x, cmd_two = 0x%x, param_len = %d", cmd_one, cmd_two,
                  param_len);
    KYRSingleton<KYRAutoTest>::GetInstance()->HandleAutoTestCommands(cmd_one, cmd_two, param, param_len);
}

void KYRUARTManage::SendData(unsigned char cmd_one, unsigned char cmd_two, std::vector<unsigned char> param)
{
    KYRRmtParameter parameter;
    const std::size_t nLength =
        protocol::encode(std::span(parameter.m_ucData).first<protocol::kMaxFrame>(), cmd_one, cmd_two, param);
    if (nLength == 0) {
        KYR_LOG_ERROR("SendData, 0x%x 0x%x not sent: %zu parameter bytes make a frame of %zu, %zu fit", cmd_one,
                      cmd_two, param.size(), protocol::frameLength(param.size()), protocol::kMaxFrame);
        return;
    }
    parameter.m_ucLength = static_cast<unsigned char>(nLength);
    if (ConfigFlag(kOpenDebugKey))
        PrintData("[auto test][engineering]SendData", parameter.m_ucData, static_cast<int>(nLength));
    m_UartAdapter.SendAutoTestCommand(&parameter);
}

void KYRUARTManage::PrintData(const char* tag, unsigned char* data, int len)
{
    if (len > kMostPrinted)
        return;
    std::string strText;
    for (int i = 0; i < len; ++i)
        strText += {kDigits[data[i] >> 4], kDigits[data[i] & 0xF], ' '};
    std::printf("%s:[len=%d]%s\n", tag, len, strText.c_str());
}

void KYRUARTManage::AutoTestSetTrackIndex(MEDIA_TYPE type, unsigned char track_index)
{
    // WIRE: the codes of the media group's get-track commands, even if another command asked for the track.
    static constexpr struct {
        MEDIA_TYPE type;
        unsigned char cmd_two;
    } kTrackReports[] = {{MEDIA_TYPE_1, 0x05}, {MEDIA_TYPE_2, 0x0D}, {MEDIA_TYPE_3, 0x0B}};

    KYR_LOG_DEBUG("AutoTestSetTrackIndex, track_index = %d", track_index);
    for (const auto& report : kTrackReports) {
        if (report.type == type)
            KYRSingleton<KYRUARTManage>::GetInstance()->SendData(KYRAutoTest::kMedia | protocol::kReplyBit,
                                                                 report.cmd_two, {track_index});
    }
}

void KYRUARTManage::AutoTestFeedbackKeyEvent(E_KeyVKey key, E_KeyStatus status)
{
    KYRSingleton<KYRAutoTest>::GetInstance()->FeedBackKeyEvent(key, status);
}
