#include <array>

#include "KYRSystemUpdate.h"
#include "engineering/autotest/KYRAutoTest.h"
#include "engineering/base/Log.h"
#include "engineering/base/Outlets.h"

#undef KYR_LOG_FUNCTION
#define KYR_LOG_FUNCTION "HandleOtherCommands"

namespace {

constexpr int kUpdateCode = 13;

}  // namespace

std::span<const Command> KYRAutoTest::OtherCommands()
{
    static constexpr auto kCommands = std::to_array<Command>({
        // cmd_two, least number of parameters, name, action
        {0x00, 0, "set flag",
         [](KYRAutoTest& engine, Params params) {
             if (!params.empty())
                 engine.m_iFlag = params[0];
             KYR_LOG_DEBUG("HandleOtherCommands, m_iFlag = %d", engine.m_iFlag);
         }},
        {0x01, 0, "get flag", [](KYRAutoTest& engine, Params) { Reply(kOther, 0x01, {engine.m_iFlag}); }},
        {0x02, 1, "aging audio",
         [](KYRAutoTest&, Params params) {
             if (params[0] != 1)
                 return;
             const KYRSource::SourceID source = KYRSource::GetCurrentSource(KYRSource::SOURCE_TYPE_MAIN);
             KYR_LOG_DEBUG("HandleOtherCommands, bg_source = %d", source);
             // When that source becomes active, the HMI plays /media/usbstorage0/Aging_test_1kHz.mp3.
             if (source != KYRSource::SOURCE_USB_MEDIA)
                 KYRSource::Request(KYRSource::SOURCE_USB_MEDIA, KYRSource::AUDIO_GAIN_DEFAULT);
         }},
        {0x03, 0, "get status", [](KYRAutoTest& engine, Params) { Reply(kOther, 0x03, {engine.m_ucStatusFlag}); }},
        {0x05, 0, "system update",
         [](KYRAutoTest&, Params) {
             if (KYRSystemUpdate* const update = KYR_GetSystemUpdateProxy())
                 update->Request(kUpdateCode);
             else
                 KYR_LOG_ERROR("HandleOtherCommands, no system-update proxy");
         }},
        {0x06, 1, "select page",
         [](KYRAutoTest&, Params params) {
             emit_on_auto_test_select_page_signal(static_cast<AUTO_TEST_PAGE_TYPE>(params[0]));
         }},
    });
    static_assert(CodesAscend(kCommands));
    return kCommands;
}

void KYRAutoTest::HandleOtherCommands(unsigned char cmd_two, unsigned char* param, int param_len)
{
    Run(OtherCommands(), cmd_two, param, param_len);
}
