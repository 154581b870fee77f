#include <algorithm>
#include <array>
#include <functional>

#include "engineering/autotest/KYRAutoTest.h"
#include "engineering/base/Log.h"
#include "protocol/Frame.h"

#undef KYR_LOG_FUNCTION
#define KYR_LOG_FUNCTION "HandleGPSCommands"

namespace {

}  // namespace

std::span<const Command> KYRAutoTest::GPSCommands()
{
    static constexpr auto kCommands = std::to_array<Command>({
        // cmd_two, least number of parameters, name, action
        {0x00, 0, "satellites",
         [](KYRAutoTest& engine, Params) {
             std::vector<unsigned char> reply;
             int count = 0;
             {
                 const std::lock_guard lock(engine.m_LocationMutex);
                 const Satellites& satellites = engine.m_Satellites;
                 count = satellites.m_iStarNumberInView;
                 reply.push_back(static_cast<unsigned char>(count));
                 for (std::size_t i = 0; static_cast<int>(i) < count; ++i) {
                     reply.push_back(static_cast<unsigned char>(satellites.number[i]));
                     protocol::appendBigEndian(reply, static_cast<std::uint32_t>(satellites.signal[i]), 3);
                 }
             }
             KYR_LOG_ERROR("HandleGPSCommands, m_iStarNumberInView = %d", count);
             Reply(kGps, 0x00, reply);
         }},
        {0x02, 0, "position",
         [](KYRAutoTest& engine, Params) {
             Position position;
             {
                 const std::lock_guard lock(engine.m_LocationMutex);
                 position = engine.m_Position;
             }
             KYR_LOG_DEBUG("HandleGPSCommands, m_iLongitude = 0x%X, m_iLatitude = 0x%X",
                           static_cast<unsigned int>(position.m_iLongitude),
                           static_cast<unsigned int>(position.m_iLatitude));
             // WIRE: latitude first.
             std::vector<unsigned char> reply;
             protocol::appendBigEndian(reply, static_cast<std::uint32_t>(position.m_iLatitude), 4);
             protocol::appendBigEndian(reply, static_cast<std::uint32_t>(position.m_iLongitude), 4);
             Reply(kGps, 0x02, reply);
         }},
        {0x0B, 0, "GPS antenna",
         [](KYRAutoTest&, Params) {
             KYRSystemMisc* const misc = KYR_GetSystemMiscProxy();
             if (misc == nullptr)
                 KYR_LOG_ERROR("HandleGPSCommands, no system-misc proxy, the antenna counts as 0");
             // WIRE: the state unchanged, unlike the tuner's antennas.
             const int state = misc != nullptr ? misc->GetGpsAntState() : 0;
             Reply(kGps, 0x0B, {static_cast<unsigned char>(state)});
         }},
        {0x0D, 0, "car information", [](KYRAutoTest& engine, Params) { Reply(kGps, 0x0D, {engine.m_ucCarInfo}); }},
    });
    static_assert(CodesAscend(kCommands));
    return kCommands;
}

void KYRAutoTest::HandleGPSCommands(unsigned char cmd_two, unsigned char* param, int param_len)
{
    Run(GPSCommands(), cmd_two, param, param_len);
}

void KYRAutoTest::OnAASatinfoChange(const _GpsSatelliteData& data)
{
    if (!m_bIsAutoTestMode || data.nCount == 0)
        return;
    const std::lock_guard lock(m_LocationMutex);
    m_Satellites.m_iStarNumberInView = std::min(data.nCount, static_cast<int>(kMaxSatellites));
    if (data.nCount < 0)
        return;
    // WIRE: the signals are sorted, the numbers are not. The station reads the strongest signal first, whichever
    //       satellite sent it.
    const int count = m_Satellites.m_iStarNumberInView;
    std::copy_n(std::begin(data.nNumber), count, m_Satellites.number.begin());
    std::copy_n(std::begin(data.nSignal), count, m_Satellites.signal.begin());
    std::sort(m_Satellites.signal.begin(), m_Satellites.signal.begin() + count, std::greater<>());
}

void KYRAutoTest::OnAALocationChange(const _LocationData& data)
{
    if (!m_bIsAutoTestMode)
        return;
    const std::lock_guard lock(m_LocationMutex);
    m_Position = {data.nLongitude, data.nLatitude};
}

void KYRAutoTest::OnLCarInfoChange(_LCarInfo info)
{
    if (m_bIsAutoTestMode)
        m_ucCarInfo = info.ucValue;
}
