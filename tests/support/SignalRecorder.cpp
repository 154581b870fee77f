#include "tests/support/SignalRecorder.h"

#include <mutex>

#include "engineering/base/Outlets.h"
#include "tests/support/Text.h"

namespace {

constexpr const char* kFrameSignal = "uart_data_changed_signal";

std::mutex g_mutex;
std::vector<std::string> g_signals;  // guarded by g_mutex

void record(std::string text)
{
    const std::lock_guard lock(g_mutex);
    g_signals.push_back(std::move(text));
}

void record(const char* name, const std::vector<long>& arguments)
{
    std::string text = std::string(name) + "(";
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        text += (i == 0 ? "" : ", ") + std::to_string(arguments[i]);
    }
    record(text + ")");
}

}  // namespace

std::vector<std::string> SignalRecorder::signals() const
{
    const std::lock_guard lock(g_mutex);
    return g_signals;
}

std::vector<std::string> SignalRecorder::requests() const
{
    std::vector<std::string> requests = signals();
    std::erase_if(requests, [](const std::string& signal) { return signal.starts_with(kFrameSignal); });
    return requests;
}

void SignalRecorder::clear()
{
    const std::lock_guard lock(g_mutex);
    g_signals.clear();
}

void emit_uart_data_changed_signal(unsigned char cmd_one, unsigned char cmd_two, const unsigned char* param,
                                   unsigned int param_size)
{
    record(std::string(kFrameSignal) + "(" + frameText(cmd_one, cmd_two, {param, param + param_size}) + ")");
}

void emit_on_auto_test_media_play_action_signal(MEDIA_TYPE media_type, MEDIA_PLAY_ACTION media_play_action)
{
    record("OnAutoTestMediaPlayActionSignal", {media_type, media_play_action});
}

void emit_on_auto_test_media_select_track_signal(MEDIA_TYPE media_type, unsigned char track_index)
{
    record("OnAutoTestMediaSelectTrackSignal", {media_type, track_index});
}

void emit_on_auto_test_get_media_track_signal(MEDIA_TYPE media_type)
{
    record("OnAutoTestGetMediaTrackIndexSignal", {media_type});
}

void emit_on_auto_test_volume_change_signal(unsigned char volume)
{
    record("OnAutoTestVolumeChangeSignal", {volume});
}

void emit_on_auto_test_mode_changed_signal(int is_auto_test_mode)
{
    record("OnAutoTestModeChangeSignal", {static_cast<long>(is_auto_test_mode)});
}

void emit_on_auto_test_set_fader_balance_signal(unsigned char fader_value, unsigned char balance_value)
{
    record("OnAutoTestSetFaderBalanceSignal", {fader_value, balance_value});
}

void emit_on_auto_test_enter_aging_test_signal(int is_aging_test_mode)
{
    record("OnAutoTestEnterAgingTestSignal", {static_cast<long>(is_aging_test_mode)});
}

void emit_on_auto_test_require_aging_test_signal()
{
    record("OnAutoTestRequireAgingTestStateSignal", {});
}

void emit_on_auto_test_select_page_signal(AUTO_TEST_PAGE_TYPE page)
{
    record("OnAutoTestSelectPageSignal", {static_cast<long>(page)});
}

void emit_on_auto_test_set_eq_switch_signal(int is_switch_on)
{
    record("OnAutoTestSetEqSwitchSignal", {static_cast<long>(is_switch_on)});
}
