#include "benchmarks/FloorReporter.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

namespace benchmarks {
namespace {

constexpr std::string_view kFloor = "Floor/";
constexpr std::string_view kMedian = "median";

/// Medians. Figure and floor are measured in turn, so other load affects both.
const char* const kDefaults[] = {"--benchmark_repetitions=5", "--benchmark_min_time=0.02",
                                 "--benchmark_report_aggregates_only=true",
                                 "--benchmark_enable_random_interleaving=true"};

}  // namespace

bool FloorReporter::ReportContext(const Context&)
{
    std::printf("%-44s %12s %12s %8s\n", "benchmark", "ns", "floor ns", "ratio");
    return true;
}

void FloorReporter::ReportRuns(const std::vector<Run>& runs)
{
    for (const Run& run : runs) {
        if (run.error_occurred) {
            std::printf("%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
        }
        if (run.error_occurred || (run.repetitions > 1 && run.aggregate_name != kMedian)) {
            continue;
        }
        const std::string name =
            run.run_name.function_name + (run.run_name.args.empty() ? "" : "/") + run.run_name.args;
        const bool real = !run.run_name.time_type.empty();
        // The times come in the benchmark's own unit.
        const double scale = 1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit);
        if (nanoseconds_.insert({name, scale * (real ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime())}).second) {
            names_.push_back(name);
        }
    }
}

void FloorReporter::Finalize()
{
    std::ranges::sort(names_);  // they have come in the order in which they happened to run
    for (const std::string& name : names_) {
        if (name.starts_with(kFloor)) {
            continue;
        }
        const double figure = nanoseconds_.at(name);
        const auto floor = nanoseconds_.find(std::string(kFloor) + name);
        if (floor == nanoseconds_.end()) {
            std::printf("%-44s %12.1f\n", name.c_str(), figure);
        } else {
            std::printf("%-44s %12.1f %12.1f %8.2f\n", name.c_str(), figure, floor->second, figure / floor->second);
        }
    }
}

int runBenchmarks(int argc, char** argv)
{
    std::vector<char*> arguments{argv[0]};
    for (const char* const option : kDefaults) {
        arguments.push_back(const_cast<char*>(option));
    }
    // Options of the command line come last and win.
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    int count = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
        return 2;
    }
    FloorReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}

}  // namespace benchmarks
