#pragma once

#include <atomic>
#include <vector>

#include "KYRHmi.h"

// What leaves the service: frames to the station and signals to the HMI. The engine and the link manager use these; the
// link manager and the bridge, which stand above the engine, carry them out.

/// Sends one frame to the station; any thread, at any time after the link manager has begun to exist. The link manager
/// stores its SendData() here.
inline std::atomic<void (*)(unsigned char cmd_one, unsigned char cmd_two, std::vector<unsigned char> param)>
    g_pSendToStation = nullptr;

// Each emit function sends one signal of com.zent.linux.engineering, at once, on the calling thread. Any thread may
// call them at any time; without a bus nothing is sent. A bus that does not take signals delays the caller once, by a
// moment; then signals are dropped until it does.

/// The station has sent a frame. The signal carries at most 256 parameter bytes, and only the low 8 bits of their
/// number.
void emit_uart_data_changed_signal(unsigned char cmd_one, unsigned char cmd_two, const unsigned char* param,
                                   unsigned int param_size);

void emit_on_auto_test_media_play_action_signal(MEDIA_TYPE media_type, MEDIA_PLAY_ACTION media_play_action);
void emit_on_auto_test_media_select_track_signal(MEDIA_TYPE media_type, unsigned char track_index);

/// Sends OnAutoTestGetMediaTrackIndexSignal.
void emit_on_auto_test_get_media_track_signal(MEDIA_TYPE media_type);

void emit_on_auto_test_volume_change_signal(unsigned char volume);

/// Sends OnAutoTestModeChangeSignal with the number as its truth value.
void emit_on_auto_test_mode_changed_signal(int is_auto_test_mode);

void emit_on_auto_test_set_fader_balance_signal(unsigned char fader_value, unsigned char balance_value);
void emit_on_auto_test_enter_aging_test_signal(int is_aging_test_mode);

/// Sends OnAutoTestRequireAgingTestStateSignal.
void emit_on_auto_test_require_aging_test_signal();

void emit_on_auto_test_select_page_signal(AUTO_TEST_PAGE_TYPE page);
void emit_on_auto_test_set_eq_switch_signal(int is_switch_on);
