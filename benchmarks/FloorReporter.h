#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace benchmarks {

/// Prints every figure with its floor: the benchmark "Floor/NAME" is the floor of the benchmark "NAME". One line each,
/// after all have run:
///
///     NAME  figure  floor  ratio
///
/// The figures are medians over the repetitions: CPU time per iteration, or real time where the benchmark says so.
class FloorReporter : public benchmark::BenchmarkReporter
{
public:
    bool ReportContext(const Context& context) override;
    void ReportRuns(const std::vector<Run>& runs) override;
    void Finalize() override;

private:
    std::vector<std::string> names_;  // in the order in which they first came
    std::map<std::string, double> nanoseconds_;
};

/// Runs the program's benchmarks: repeated and interleaved, unless the command line says otherwise.
int runBenchmarks(int argc, char** argv);

}  // namespace benchmarks
