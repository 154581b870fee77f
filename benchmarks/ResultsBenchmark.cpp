// What many runs cost. Floor of the list: to look at each record's times and size. Floor of the statistics: the list.

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "benchmarks/FloorReporter.h"
#include "station/record/ResultsFolder.h"
#include "station/record/RunIndex.h"
#include "station/record/SampleRuns.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TempDir.h"

namespace {

namespace fs = std::filesystem;
namespace record = station::record;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kRuns = 10'000;
constexpr std::size_t kSteps = 30;

/// Runs of 8,000 units; a tenth of the values of one step is out of limits.
void makeRuns(const fs::path& directory)
{
    std::mt19937 random(1);
    std::normal_distribution<double> level(500, 12);
    for (std::size_t i = 0; i < kRuns; ++i) {
        std::vector<double> values(kSteps);
        for (double& value : values) {
            value = std::round(level(random) * 10) / 10;
        }
        values[7] += random() % 10 == 0 ? 100 : 0;
        record::samples::write(
            record::samples::measured(fmt::format("HU-{:06}", i % (kRuns * 4 / 5)), std::chrono::seconds(i * 30),
                                      values, {.minimum = 440, .maximum = 560, .equals = {}, .matches = {}}),
            directory);
    }
}

/// The directory of the runs, which are made once.
const fs::path& directory()
{
    static const tests::TempDir temporary;
    static const bool made = (makeRuns(temporary.path()), true);
    benchmark::DoNotOptimize(made);
    return temporary.path();
}

void station(std::vector<std::string> words)
{
    words.insert(words.begin(), ENGINEERING_STATION);
    words.insert(words.end(), {"--results", directory()});
    tests::ChildProcess process(words);
    process.wait();
}

void list(benchmark::State& state)
{
    for (auto _ : state) {
        station({"report", "list"});
    }
}
BENCHMARK(list)->Name("List")->UseRealTime();

void look(benchmark::State& state)
{
    for (auto _ : state) {
        for (const auto& each : fs::directory_iterator(directory())) {
            benchmark::DoNotOptimize(fs::last_write_time(each.path() / record::kRecordFile));
        }
    }
}
BENCHMARK(look)->Name("Floor/List")->UseRealTime();

void stats(benchmark::State& state)
{
    for (auto _ : state) {
        station({"report", "stats"});
    }
}
BENCHMARK(stats)->Name("Stats")->UseRealTime();
BENCHMARK(list)->Name("Floor/Stats")->UseRealTime();

/// Without the index.
void printCold(const char* verb)
{
    fs::remove(directory() / record::RunIndex::kFile);
    const auto start = Clock::now();
    station({"report", verb});
    std::printf(
        "the first 'report %s' of %zu runs: %lld ms\n", verb, kRuns,
        static_cast<long long>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count()));
}

}  // namespace

/// With --make DIR, it only makes the runs.
int main(int argc, char** argv)
{
    if (argc == 3 && std::string_view(argv[1]) == "--make") {
        makeRuns(argv[2]);
        return 0;
    }
    printCold("list");
    printCold("stats");
    return benchmarks::runBenchmarks(argc, argv);
}
