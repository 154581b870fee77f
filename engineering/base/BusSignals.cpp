#include "engineering/base/BusSignals.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "engineering/base/Log.h"
#include "engineering/base/Outlets.h"

std::atomic<ComZentLinuxEngineering*> pSkeleton = nullptr;

// Made before any thread starts and never destroyed: GDBus's own thread may use it until the process has ended.
BusBacklog& g_Backlog = *new BusBacklog;

namespace {

constexpr const char* kInterface = "com.zent.linux.engineering";

/// Parameter bytes that a signal may carry.
constexpr std::size_t kSignalParams = 256;

}  // namespace

void BusBacklog::Watch(GDBusConnection* pConnection)
{
    {
        const std::lock_guard lock(m_mutex);
        m_pConnection = pConnection;
    }
    g_dbus_connection_add_filter(pConnection, OnMessage, this, nullptr);
}

bool BusBacklog::Admit()
{
    bool bStops = false;
    {
        std::unique_lock lock(m_mutex);
        // A closed connection queues nothing.
        if (m_pConnection == nullptr || g_dbus_connection_is_closed(m_pConnection))
            return true;
        while (!m_bStopped && m_nQueued >= kLimit) {
            const unsigned int nTaken = m_nTaken;
            bStops = !m_taken.wait_for(lock, kPatience, [&] { return m_nTaken != nTaken; });
            m_bStopped = m_bStopped || bStops;
        }
        if (!m_bStopped) {
            ++m_nQueued;
            return true;
        }
        ++m_nDropped;
    }
    if (bStops)
        KYR_LOG_WARN("D-Bus takes no signals, they are dropped until it does");
    return false;
}

// Runs on GDBus's own thread, for every message of the connection, just before an outgoing one is written.
GDBusMessage* BusBacklog::OnMessage(GDBusConnection*, GDBusMessage* pMessage, gboolean bIncoming, gpointer pSelf)
{
    // The process shares the connection: others may send on it, too.
    if (!bIncoming && g_dbus_message_get_message_type(pMessage) == G_DBUS_MESSAGE_TYPE_SIGNAL &&
        g_strcmp0(g_dbus_message_get_interface(pMessage), kInterface) == 0)
        static_cast<BusBacklog*>(pSelf)->OnTaken();
    return pMessage;
}

void BusBacklog::OnTaken()
{
    std::optional<unsigned int> nDropped;
    {
        const std::lock_guard lock(m_mutex);
        m_nQueued = std::max(m_nQueued - 1, 0);  // a signal may have left before the counting began
        ++m_nTaken;
        if (m_bStopped && m_nQueued <= kLimit / 2) {
            m_bStopped = false;
            nDropped = std::exchange(m_nDropped, 0);
        }
    }
    m_taken.notify_all();
    if (nDropped)
        KYR_LOG_WARN("D-Bus takes signals again, %u were dropped", *nDropped);
}

GVariant* gvariant_data_build(const unsigned char* bytes, int length)
{
    const gsize count = static_cast<gsize>(std::max(length, 0));
    return g_variant_new_variant(g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes, count, sizeof(guchar)));
}

// Before the bus has been acquired the skeleton is null. The generated function refuses it.

void emit_uart_data_changed_signal(unsigned char cmd_one, unsigned char cmd_two, const unsigned char* param,
                                   unsigned int param_size)
{
    KYR_LOG_DEBUG("[rkb] emit_uart_data_changed_signal, cmd_one = %x, cmd_two = %x, param_size = %d", cmd_one, cmd_two,
                  param_size);
    if (!g_Backlog.Admit())
        return;
    const std::size_t count = std::min<std::size_t>(param_size, kSignalParams);
    g_autoptr(GVariant) data = g_variant_ref_sink(gvariant_data_build(param, static_cast<int>(count)));
    // WIRE: the signal carries only the low 8 bits of the count.
    com_zent_linux_engineering_emit_uart_data_changed_signal(pSkeleton, cmd_one, cmd_two, data,
                                                             static_cast<guchar>(param_size));
}

void emit_on_auto_test_media_play_action_signal(MEDIA_TYPE media_type, MEDIA_PLAY_ACTION media_play_action)
{
    KYR_LOG_DEBUG("emit_on_auto_test_media_play_action_signal, media_type = %d, media_play_action = %d", media_type,
                  media_play_action);
    if (g_Backlog.Admit())
        com_zent_linux_engineering_emit_on_auto_test_media_play_action_signal(
            pSkeleton, static_cast<guchar>(media_type), static_cast<guchar>(media_play_action));
}

void emit_on_auto_test_media_select_track_signal(MEDIA_TYPE media_type, unsigned char track_index)
{
    KYR_LOG_DEBUG("emit_on_auto_test_media_select_track_signal, media_type = %d, track_index = %d", media_type,
                  track_index);
    if (g_Backlog.Admit())
        com_zent_linux_engineering_emit_on_auto_test_media_select_track_signal(
            pSkeleton, static_cast<guchar>(media_type), track_index);
}

void emit_on_auto_test_get_media_track_signal(MEDIA_TYPE media_type)
{
    KYR_LOG_DEBUG("emit_on_auto_test_get_media_track_signal, media_type = %d", media_type);
    if (g_Backlog.Admit())
        com_zent_linux_engineering_emit_on_auto_test_get_media_track_index_signal(pSkeleton,
                                                                                  static_cast<guchar>(media_type));
}

void emit_on_auto_test_volume_change_signal(unsigned char volume)
{
    if (g_Backlog.Admit())
        com_zent_linux_engineering_emit_on_auto_test_volume_change_signal(pSkeleton, volume);
}

void emit_on_auto_test_mode_changed_signal(int is_auto_test_mode)
{
    if (g_Backlog.Admit())
        com_zent_linux_engineering_emit_on_auto_test_mode_change_signal(pSkeleton, is_auto_test_mode);
    KYR_LOG_INFO("emit_on_auto_test_mode_changed_signal, is_auto_test_mode = %d", is_auto_test_mode);
}

void emit_on_auto_test_set_fader_balance_signal(unsigned char fader_value, unsigned char balance_value)
{
    if (g_Backlog.Admit())
        com_zent_linux_engineering_emit_on_auto_test_set_fader_balance_signal(pSkeleton, fader_value, balance_value);
    KYR_LOG_INFO("emit_on_auto_test_set_fader_balance_signal, fader_value = %d, balance_value = %d", fader_value,
                 balance_value);
}

void emit_on_auto_test_enter_aging_test_signal(int is_aging_test_mode)
{
    if (g_Backlog.Admit())
        com_zent_linux_engineering_emit_on_auto_test_enter_aging_test_signal(pSkeleton, is_aging_test_mode);
    KYR_LOG_INFO("emit_on_auto_test_enter_aging_test_signal, is_aging_test_mode = %d", is_aging_test_mode);
}

void emit_on_auto_test_require_aging_test_signal()
{
    if (g_Backlog.Admit())
        com_zent_linux_engineering_emit_on_auto_test_require_aging_test_state_signal(pSkeleton);
}

void emit_on_auto_test_select_page_signal(AUTO_TEST_PAGE_TYPE page)
{
    if (g_Backlog.Admit())
        com_zent_linux_engineering_emit_on_auto_test_select_page_signal(pSkeleton, page);
}

void emit_on_auto_test_set_eq_switch_signal(int is_switch_on)
{
    if (g_Backlog.Admit())
        com_zent_linux_engineering_emit_on_auto_test_set_eq_switch_signal(pSkeleton, is_switch_on);
}
