// Calls the D-Bus methods and signals of the engineering interface with any arguments and without a bus: the bridge
// gets a closed connection, and the target calls its handlers as GDBus does.
// Input: a sequence of calls, each a byte that selects the method or signal, then its arguments.

#include <gio/gio.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "engineering/KYREngineeringService_IPC.h"
#include "engineering/UARTMgr/KYRUARTManage.h"
#include "engineering/base/BusSignals.h"
#include "engineering/base/KYRSingleton.h"
#include "engineering/base/Outlets.h"
#include "fuzz/Fuzz.h"
#include "platform/bench/HeadUnit.h"
#include "platform/runtime/Root.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/RecordedWire.h"
#include "tests/support/TempDir.h"
#include "tests/support/Text.h"

using fuzz::expect;

namespace {

int g_answers = 0;

/// A connection with a closed end, which needs no authentication.
GDBusConnection* closedConnection()
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
        std::abort();
    }
    GSocket* const socket = g_socket_new_from_fd(ends[0], nullptr);
    GSocketConnection* const stream = g_socket_connection_factory_create_connection(socket);
    GDBusConnection* const connection = g_dbus_connection_new_sync(
        G_IO_STREAM(stream), nullptr, G_DBUS_CONNECTION_FLAGS_NONE, nullptr, nullptr, nullptr);
    if (connection == nullptr) {
        std::abort();
    }
    return connection;
}

}  // namespace

// The linker uses these instead of those of GLib.

extern "C" guint __wrap_g_bus_own_name(GBusType, const gchar* name, GBusNameOwnerFlags,
                                       GBusAcquiredCallback busAcquired, GBusNameAcquiredCallback, GBusNameLostCallback,
                                       gpointer data, GDestroyNotify)
{
    static GDBusConnection* const connection = closedConnection();
    busAcquired(connection, name, data);
    g_dbus_connection_close_sync(connection, nullptr, nullptr);
    return 1;
}

extern "C" void __wrap_g_dbus_method_invocation_return_value(GDBusMethodInvocation*, GVariant* result)
{
    ++g_answers;
    g_variant_unref(g_variant_ref_sink(result));
}

namespace {

/// The bridge exists as long as the process, and so does everything that it refers to.
struct Bridge {
    Bridge()
    {
        runtime::setRoot(root.path().string());
        runtime::makeHeadUnitDirectories(root.path().string());
        unit.install();
        KYRSingleton<KYREngineeringService_IPC>::GetInstance()->Init();
        KYRSingleton<KYRUARTManage>::GetInstance();
        expect(pSkeleton != nullptr, "the bridge has no skeleton");
    }

    LogRecorder log;
    tests::TempDir root;
    bench::HeadUnit unit;
    RecordedWire station;
};

Bridge& bridge()
{
    static Bridge* const instance = new Bridge;
    return *instance;
}

/// A variant "v" of serialised bytes, valid or not.
GVariant* variantOf(std::span<const std::uint8_t> bytes)
{
    // GLib expects the bytes aligned for any type.
    void* const copy = g_malloc(bytes.size() + 1);
    std::copy(bytes.begin(), bytes.end(), static_cast<std::uint8_t*>(copy));
    return g_variant_ref_sink(g_variant_new_from_data(G_VARIANT_TYPE_VARIANT, copy, bytes.size(), FALSE, g_free, copy));
}

/// @returns the bytes in the variant if it contains an array of bytes.
std::vector<unsigned char> bytesIn(GVariant* variant)
{
    std::vector<unsigned char> bytes;
    GVariant* const inner = g_variant_get_variant(variant);
    for (gsize i = 0; g_variant_is_of_type(inner, G_VARIANT_TYPE("ay")) && i < g_variant_n_children(inner); ++i) {
        GVariant* const child = g_variant_get_child_value(inner, i);
        bytes.push_back(g_variant_get_byte(child));
        g_variant_unref(child);
    }
    g_variant_unref(inner);
    return bytes;
}

bool holdsBytes(GVariant* variant)
{
    GVariant* const inner = g_variant_get_variant(variant);
    const bool holds = g_variant_is_of_type(inner, G_VARIANT_TYPE("ay"));
    g_variant_unref(inner);
    return holds;
}

void sendUartData(fuzz::ByteReader& input)
{
    const guchar cmdOne = input.byte();
    const guchar cmdTwo = input.byte();
    const guint16 count = input.number();
    GVariant* const param = variantOf(input.bytes(input.byte()));
    auto expected = bytesIn(param);
    const bool isSent = count == 0 || (count <= 20 && holdsBytes(param));
    expected.resize(count);
    gboolean handled = FALSE;

    g_signal_emit_by_name(pSkeleton.load(), "handle-uart-send-data", nullptr, cmdOne, cmdTwo, param, count, &handled);

    g_variant_unref(param);
    expect(handled, "uart_send_data was not handled");
    const auto replies = bridge().station.replies();
    expect(replies.size() == (isSent ? 1U : 0U), "frames sent: " + std::to_string(replies.size()));
    if (isSent) {
        expect(replies[0] == frameText(cmdOne, cmdTwo, expected), "other bytes sent: " + replies[0]);
    }
}

void call(const char* signal, fuzz::ByteReader& input)
{
    const guchar first = input.byte();
    const guchar second = input.byte();
    gboolean handled = FALSE;
    g_signal_emit_by_name(pSkeleton.load(), signal, nullptr, first, second, &handled);
    expect(handled, std::string(signal) + " was not handled");
    expect(bridge().station.sent().size() <= 1, std::string(signal) + " sent more than one frame");
}

void emitFrame(fuzz::ByteReader& input)
{
    const unsigned char cmdOne = input.byte();
    const unsigned char cmdTwo = input.byte();
    // The parameter area of the engine has 256 bytes; this many count.
    std::vector<unsigned char> area(256);
    const std::size_t count = std::min<std::size_t>(input.number(), 256);
    std::ranges::copy(input.bytes(count), area.begin());
    emit_uart_data_changed_signal(cmdOne, cmdTwo, area.data(), static_cast<unsigned int>(count));
}

void emitRequest(fuzz::ByteReader& input)
{
    const int which = input.byte();
    const int first = static_cast<std::int16_t>(input.number());
    const auto second = input.byte();
    const auto low = static_cast<unsigned char>(first);
    switch (which % 10) {
        case 0:
            return emit_on_auto_test_media_play_action_signal(static_cast<MEDIA_TYPE>(low),
                                                              static_cast<MEDIA_PLAY_ACTION>(second));
        case 1:
            return emit_on_auto_test_media_select_track_signal(static_cast<MEDIA_TYPE>(low), second);
        case 2:
            return emit_on_auto_test_get_media_track_signal(static_cast<MEDIA_TYPE>(low));
        case 3:
            return emit_on_auto_test_volume_change_signal(low);
        case 4:
            return emit_on_auto_test_mode_changed_signal(first);
        case 5:
            return emit_on_auto_test_set_fader_balance_signal(low, second);
        case 6:
            return emit_on_auto_test_enter_aging_test_signal(first);
        case 7:
            return emit_on_auto_test_require_aging_test_signal();
        case 8:
            return emit_on_auto_test_select_page_signal(static_cast<AUTO_TEST_PAGE_TYPE>(low));
        default:
            return emit_on_auto_test_set_eq_switch_signal(first);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Bridge& unit = bridge();
    unit.station.sendCommand(0x0F, 0x00, {0x01});
    unit.station.sendCommand(0x06, 0x0B, {0x01});

    fuzz::ByteReader input({data, size});
    while (!input.atEnd()) {
        unit.station.clear();
        g_answers = 0;
        const int which = input.byte() % 6;
        switch (which) {
            case 0:
                sendUartData(input);
                break;
            case 1:
                call("handle-auto-test-set-track-index", input);
                break;
            case 2:
                call("handle-auto-test-feedback-key-event", input);
                break;
            case 3:
                emitFrame(input);
                break;
            case 4:
                emitRequest(input);
                break;
            default:
                unit.station.sendCommand(0x06, 0x0B, {input.byte()});
        }
        expect(g_answers == (which < 3 ? 1 : 0), "answers to one call: " + std::to_string(g_answers));
        for (const std::string& line : unit.log.lines()) {
            expect(!line.starts_with("ERROR D-Bus method call"), line);  // ended by an exception
        }
        unit.log.clear();
    }
    return 0;
}
