#include <array>
#include <cstdio>

#include "engineering/autotest/KYRAutoTest.h"
#include "engineering/base/Log.h"
#include "protocol/Frame.h"

#undef KYR_LOG_FUNCTION
#define KYR_LOG_FUNCTION "HandleTunerCommands"

namespace {

// WIRE: the two mappings are not inverses: codes 2 to 4 select a band that has no code.

/// The band that the station's code selects.
KYRTuner::BandID BandOfCode(unsigned char code)
{
    static constexpr KYRTuner::BandID kBands[] = {KYRTuner::BAND_FM, KYRTuner::BAND_0, KYRTuner::BAND_4,
                                                  KYRTuner::BAND_4,  KYRTuner::BAND_4, KYRTuner::BAND_3};
    return code < std::size(kBands) ? kBands[code] : KYRTuner::BAND_4;
}

/// The station's code of a band; empty for a band without one.
std::vector<unsigned char> CodeOfBand(KYRTuner::BandID band)
{
    switch (band) {
        case KYRTuner::BAND_FM:
            return {0};
        case KYRTuner::BAND_0:
            return {1};
        case KYRTuner::BAND_3:
            return {5};
        default:
            return {};
    }
}

}  // namespace

KYRTuner* KYRAutoTest::TunerOrLog()
{
    if (m_TuerService == nullptr)
        KYR_LOG_ERROR("HandleTunerCommands, m_TuerService is null...");
    return m_TuerService;
}

void KYRAutoTest::ReplyAntenna(unsigned char cmd_two, bool bGood)
{
    Reply(kTuner, cmd_two, {static_cast<unsigned char>(bGood ? 1 : 0)});
}

std::span<const Command> KYRAutoTest::TunerCommands()
{
    static constexpr auto kCommands = std::to_array<Command>({
        // cmd_two, least number of parameters, name, action
        {0x00, 2, "play frequency",
         [](KYRAutoTest& engine, Params params) {
             KYRTuner* const tuner = engine.TunerOrLog();
             if (tuner == nullptr)
                 return;
             const KYRTuner::BandID band = tuner->GetCurrentBand();
             const std::uint32_t frequency = protocol::fromBigEndian(params.first(2));
             tuner->Play(band, frequency, 0, KYR_TRUE);
             std::printf("[auto test],m_TuerService->Play(%d, %d, 0, KYR_TRUE)\n", band, frequency);
         }},
        {0x01, 0, "get frequency",
         [](KYRAutoTest& engine, Params) {
             KYRTuner* const tuner = engine.TunerOrLog();
             if (tuner == nullptr)
                 return;
             const KYRTuner::BandID band = tuner->GetCurrentBand();
             const unsigned int frequency = tuner->GetFrequency(band);
             std::printf("[auto test], Get frequence, band = %d, freq = %d\n", band, frequency);
             std::vector<unsigned char> reply;
             protocol::appendBigEndian(reply, frequency, 2);
             Reply(kTuner, 0x01, reply);
         }},
        {0x02, 1, "switch band",
         [](KYRAutoTest& engine, Params params) {
             const KYRTuner::BandID band = BandOfCode(params[0]);
             KYRTuner* const tuner = engine.TunerOrLog();
             if (tuner == nullptr)
                 return;
             tuner->SwitchBandRequest(band);
             std::printf("[auto test], m_TuerService->SwitchBandRequest(%d)\n", band);
         }},
        {0x03, 0, "get band",
         [](KYRAutoTest& engine, Params) {
             // WIRE: the only command that answers without a tuner; the reply is then empty.
             KYRTuner* const tuner = engine.TunerOrLog();
             const KYRTuner::BandID band = tuner != nullptr ? tuner->GetCurrentBand() : KYRTuner::BAND_4;
             Reply(kTuner, 0x03, CodeOfBand(band));
             std::printf("[auto test], Send the band  = %d\n", band);
         }},
        {0x04, 1, "tune action",
         [](KYRAutoTest& engine, Params params) {
             KYRTuner* const tuner = engine.TunerOrLog();
             if (tuner == nullptr)
                 return;
             const KYRTuner::BandID band = tuner->GetCurrentBand();
             KYR_LOG_INFO("HandleTunerCommands, band = %d", band);
             switch (params[0]) {
                 case 0:
                 case 1:
                     tuner->Seek(band, params[0]);
                     break;
                 case 2:
                     tuner->AutoStore();
                     break;
                 case 3:
                     tuner->Scan(band);
                     break;
                 default:
                     break;
             }
         }},
        {0x0B, 1, "set RDS AF",
         [](KYRAutoTest& engine, Params params) {
             KYRTuner* const tuner = engine.TunerOrLog();
             if (tuner == nullptr)
                 return;
             tuner->SwitchRdsAFSetting(params[0]);
             std::printf("[auto test], m_TuerService->SwitchRdsAFSetting(%d)\n", params[0]);
         }},
        {0x0C, 1, "set RDS TA",
         [](KYRAutoTest& engine, Params params) {
             KYRTuner* const tuner = engine.TunerOrLog();
             if (tuner == nullptr)
                 return;
             tuner->SwitchRdsTASetting(params[0]);
             std::printf("[auto test], m_TuerService->SwitchRdsTASetting(%d)\n", params[0]);
         }},
        {0x12, 0, "radio antenna",
         [](KYRAutoTest& engine, Params) {
             KYRSystemMisc* const misc = KYR_GetSystemMiscProxy();
             if (misc == nullptr)
                 KYR_LOG_ERROR("HandleTunerCommands, no system-misc proxy, radio antenna counts as bad");
             const int state = misc != nullptr ? misc->GetRadioAntState() : 0;
             std::printf("[auto test], radio_ant_state = %d\n", state);
             engine.ReplyAntenna(0x12, state == SystemMisc::ANT_STATE_OK);
         }},
        {0x13, 0, "DAB antenna",
         [](KYRAutoTest& engine, Params) {
             KYRSystemMisc* const misc = KYR_GetSystemMiscProxy();
             if (misc == nullptr)
                 KYR_LOG_ERROR("HandleTunerCommands, no system-misc proxy, DAB antenna counts as bad");
             const int state = misc != nullptr ? misc->GetDabAntState() : 0;
             std::printf("[auto test], dab_ant_state = %d\n", state);
             engine.ReplyAntenna(0x13, state == SystemMisc::ANT_STATE_OK);
         }},
        {0x17, 0, "get TA state",
         [](KYRAutoTest& engine, Params) { Reply(kTuner, 0x17, {static_cast<unsigned char>(engine.m_nTAActive)}); }},
        {0x18, 0, "last FM frequency",
         [](KYRAutoTest& engine, Params) {
             std::vector<unsigned char> reply;
             protocol::appendBigEndian(reply, engine.m_nFmFrequency, 4);
             Reply(kTuner, 0x18, reply);
         }},
    });
    static_assert(CodesAscend(kCommands));
    return kCommands;
}

void KYRAutoTest::HandleTunerCommands(unsigned char cmd_two, unsigned char* param, int param_len)
{
    Run(TunerCommands(), cmd_two, param, param_len);
}
