// The cost of republishing a frame on D-Bus, on a bus of its own. The floor is GDBus alone: the same signal with a body
// that is made once.

#include <benchmark/benchmark.h>
#include <gio/gio.h>

#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <vector>

#include "benchmarks/FloorReporter.h"
#include "engineering/KYREngineeringService_IPC.h"
#include "engineering/base/BusSignals.h"
#include "engineering/base/KYRSingleton.h"
#include "engineering/base/Log.h"
#include "engineering/base/Outlets.h"
#include "platform/runtime/BusName.h"
#include "platform/runtime/Root.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TempDir.h"

namespace {

constexpr const char* kName = "com.zent.linux.engineering";
constexpr const char* kPath = "/com/zent/linux/engineering";
constexpr const char* kSignal = "uart_data_changed_signal";

/// Size of a batch, which is sent completely before the next; less than the service allows in its queue.
constexpr int kBatch = 256;

std::vector<unsigned char> paramsOf(benchmark::State& state)
{
    std::vector<unsigned char> params(static_cast<std::size_t>(state.range(0)));
    std::iota(params.begin(), params.end(), static_cast<unsigned char>(0));
    return params;
}

GVariant* bodyOf(GVariant* param, std::size_t count)
{
    return g_variant_new("(yy@vy)", 0x02, 0x03, param, static_cast<guchar>(count));
}

/// The connection to the session bus, which the bridge uses too.
GDBusConnection* connection()
{
    static GDBusConnection* const shared = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
    return shared;
}

/// Argument: number of parameters; the time is that of one signal of a batch that has left.
void Republish(benchmark::State& state)
{
    const auto params = paramsOf(state);
    while (state.KeepRunningBatch(kBatch)) {
        for (int signal = 0; signal < kBatch; ++signal) {
            emit_uart_data_changed_signal(0x02, 0x03, params.data(), static_cast<unsigned>(params.size()));
        }
        g_dbus_connection_flush_sync(connection(), nullptr, nullptr);
    }
}

void FloorOfRepublish(benchmark::State& state)
{
    const auto params = paramsOf(state);
    GVariant* const param = gvariant_data_build(params.data(), static_cast<int>(params.size()));
    GVariant* const body = g_variant_ref_sink(bodyOf(param, params.size()));
    while (state.KeepRunningBatch(kBatch)) {
        for (int signal = 0; signal < kBatch; ++signal) {
            g_dbus_connection_emit_signal(connection(), nullptr, kPath, kName, kSignal, body, nullptr);
        }
        g_dbus_connection_flush_sync(connection(), nullptr, nullptr);
    }
    g_variant_unref(body);
}

BENCHMARK(Republish)->Arg(0)->Arg(8)->Arg(240)->UseRealTime();
BENCHMARK(FloorOfRepublish)->Arg(0)->Arg(8)->Arg(240)->UseRealTime()->Name("Floor/Republish");

/// Argument: number of parameters; one body in each iteration.
void BuildBody(benchmark::State& state)
{
    const auto params = paramsOf(state);
    for ([[maybe_unused]] auto round : state) {
        GVariant* const param = gvariant_data_build(params.data(), static_cast<int>(params.size()));
        GVariant* const body = g_variant_ref_sink(bodyOf(param, params.size()));
        benchmark::DoNotOptimize(g_variant_get_data(body));
        g_variant_unref(body);
    }
}

/// The same tuple around parameters that are made once.
void FloorOfBuildBody(benchmark::State& state)
{
    const auto params = paramsOf(state);
    GVariant* const param = g_variant_ref_sink(gvariant_data_build(params.data(), static_cast<int>(params.size())));
    for ([[maybe_unused]] auto round : state) {
        GVariant* const body = g_variant_ref_sink(bodyOf(param, params.size()));
        benchmark::DoNotOptimize(g_variant_get_data(body));
        g_variant_unref(body);
    }
    g_variant_unref(param);
}

BENCHMARK(BuildBody)->Arg(0)->Arg(8)->Arg(240);
BENCHMARK(FloorOfBuildBody)->Arg(0)->Arg(8)->Arg(240)->Name("Floor/BuildBody");

}  // namespace

int main(int argc, char** argv)
{
    const tests::TempDir directory;
    const tests::PrivateBus bus;
    setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1);
    runtime::setRoot(directory.path().string());
    runtime::makeHeadUnitDirectories(directory.path().string());
    if (log_system_init("engineering") == 0) {
        return 1;
    }
    KYRSingleton<KYREngineeringService_IPC>::GetInstance()->Init();
    if (runtime::awaitBusName(kName, std::chrono::seconds(10)).state != runtime::BusName::State::kOwned) {
        std::fprintf(stderr, "signal_benchmark: the bus name was not had in 10 s\n");
        return 1;
    }
    g_dbus_connection_set_exit_on_close(connection(), FALSE);
    const int status = benchmarks::runBenchmarks(argc, argv);
    std::fflush(stdout);
    _exit(status);  // the bridge's thread runs to the end
}
