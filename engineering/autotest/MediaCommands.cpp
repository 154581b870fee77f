#include <array>
#include <cstdio>

#include "engineering/autotest/KYRAutoTest.h"
#include "engineering/base/Log.h"
#include "engineering/base/Outlets.h"

#undef KYR_LOG_FUNCTION
#define KYR_LOG_FUNCTION "HandleMediaCommands"

// The HMI carries these commands out and reports track indices later, through D-Bus. The group itself never answers.

std::span<const Command> KYRAutoTest::MediaCommands()
{
    static constexpr auto kCommands = std::to_array<Command>({
        // cmd_two, least number of parameters, name, action
        {0x00, 1, "play action 1 or 2",
         [](KYRAutoTest&, Params params) {
             if (params[0] == 0)
                 emit_on_auto_test_media_play_action_signal(MEDIA_TYPE_1, MEDIA_PLAY_ACTION_1);
             else if (params[0] == 1)
                 emit_on_auto_test_media_play_action_signal(MEDIA_TYPE_1, MEDIA_PLAY_ACTION_2);
         }},
        {0x01, 2, "select track, type 1",
         [](KYRAutoTest&, Params params) {
             KYR_LOG_DEBUG("HandleMediaCommands, param[1] = %d", params[1]);
             if (params[1] == 0)
                 return;
             // WIRE: the station counts these tracks from 1, the HMI from 0.
             const auto track = static_cast<unsigned char>(params[1] - 1);
             emit_on_auto_test_media_select_track_signal(MEDIA_TYPE_1, track);
             std::printf("[auto test]HandleMediaCommands, emit_on_auto_test_media_select_track_signal,track: %d\n",
                         track);
         }},
        {0x02, 1, "play action 4 or 3",
         [](KYRAutoTest&, Params params) {
             // WIRE: the reverse of 0x00: the lower byte selects the higher action.
             if (params[0] == 0)
                 emit_on_auto_test_media_play_action_signal(MEDIA_TYPE_1, MEDIA_PLAY_ACTION_4);
             else if (params[0] == 1)
                 emit_on_auto_test_media_play_action_signal(MEDIA_TYPE_1, MEDIA_PLAY_ACTION_3);
         }},
        {0x05, 0, "get track, type 1",
         [](KYRAutoTest&, Params) { emit_on_auto_test_get_media_track_signal(MEDIA_TYPE_1); }},
        {0x0A, 2, "select track, type 3",
         [](KYRAutoTest&, Params params) {
             KYR_LOG_DEBUG("HandleMediaCommands, param[1] = %d", params[1]);
             // WIRE: forwarded unchanged, unlike 0x01; 0 selects nothing here either.
             if (params[1] != 0)
                 emit_on_auto_test_media_select_track_signal(MEDIA_TYPE_3, params[1]);
         }},
        {0x0B, 0, "get track, type 3",
         [](KYRAutoTest&, Params) { emit_on_auto_test_get_media_track_signal(MEDIA_TYPE_3); }},
        {0x0D, 0, "get track, type 2",
         [](KYRAutoTest&, Params) { emit_on_auto_test_get_media_track_signal(MEDIA_TYPE_2); }},
    });
    static_assert(CodesAscend(kCommands));
    return kCommands;
}

void KYRAutoTest::HandleMediaCommands(unsigned char cmd_two, unsigned char* param, int param_len)
{
    Run(MediaCommands(), cmd_two, param, param_len);
}
