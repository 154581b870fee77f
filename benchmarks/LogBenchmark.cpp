// The cost of a log line. Floor of a line that its level filters out: reading the category and calling a function.
// Floor of a written line: one write of a line of the same length.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "benchmarks/FloorReporter.h"
#include "engineering/base/Log.h"
#include "host/Descriptor.h"
#include "platform/runtime/Root.h"
#include "tests/support/TempDir.h"

namespace {

/// The directory of the log and of the floor's file.
std::filesystem::path theDirectory;

constexpr int kLinesBeforeCut = 5000;

/// @returns the length of a line; writes one to find out.
std::size_t lineLength()
{
    const auto log = theDirectory / "perm_data/log/log_engineering.log";
    std::filesystem::resize_file(log, 0);
    KYR_LOG_INFO("[rkb] ParseData, checksum_param = %x", 0xFF00U);
    return std::filesystem::file_size(log);
}

void LogFiltered(benchmark::State& state)
{
    unsigned value = 0xFF00;
    for ([[maybe_unused]] auto round : state) {
        benchmark::DoNotOptimize(value);
        KYR_LOG_DEBUG("HandleAutoTestCommands, cmd_one = 0x%x, cmd_two = 0x%x, param_len = %d", value, value, 1);
    }
}
BENCHMARK(LogFiltered);

[[gnu::noinline]] void callWith(zlog_category_t* category, unsigned value)
{
    benchmark::DoNotOptimize(category);
    benchmark::DoNotOptimize(value);
}

void FloorOfLogFiltered(benchmark::State& state)
{
    unsigned value = 0xFF00;
    for ([[maybe_unused]] auto round : state) {
        benchmark::DoNotOptimize(value);
        callWith(liblog_category, value);
    }
}
BENCHMARK(FloorOfLogFiltered)->Name("Floor/LogFiltered");

void LogWritten(benchmark::State& state)
{
    for ([[maybe_unused]] auto round : state) {
        KYR_LOG_INFO("[rkb] ParseData, checksum_param = %x", 0xFF00U);
    }
}
BENCHMARK(LogWritten);

void FloorOfLogWritten(benchmark::State& state)
{
    const std::string line(lineLength() - 1, 'x');
    const std::string text = line + "\n";
    const host::Descriptor file(
        open((theDirectory / "floor").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    int lines = 0;
    for ([[maybe_unused]] auto round : state) {
        benchmark::DoNotOptimize(write(file.get(), text.data(), text.size()));
        // As short as the log before it rotates: a file that always grows needs new memory.
        if (++lines % kLinesBeforeCut == 0) {
            benchmark::DoNotOptimize(ftruncate(file.get(), 0));
        }
    }
}
BENCHMARK(FloorOfLogWritten)->Name("Floor/LogWritten");

}  // namespace

int main(int argc, char** argv)
{
    const tests::TempDir directory;
    theDirectory = directory.path();
    runtime::setRoot(theDirectory.string());
    runtime::makeHeadUnitDirectories(theDirectory.string());
    if (log_system_init("engineering") == 0) {
        return 1;
    }
    return benchmarks::runBenchmarks(argc, argv);
}
