#include "tests/faults/ProcessFigures.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "tests/faults/Soak.h"

namespace tests {

namespace fs = std::filesystem;

namespace {

std::size_t entriesOf(const fs::path& directory)
{
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(directory), fs::directory_iterator()));
}

}  // namespace

ProcessFigures figuresOf(pid_t process)
{
    const fs::path directory = fs::path("/proc") / std::to_string(process);
    ProcessFigures figures;
    std::size_t size = 0;
    std::ifstream(directory / "statm") >> size >> figures.residentBytes;
    figures.residentBytes *= static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    figures.descriptors = entriesOf(directory / "fd");
    figures.threads = entriesOf(directory / "task");
    return figures;
}

ProcessFigures figuresAfter(const ProcessFigures& before, pid_t process)
{
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    ProcessFigures after = figuresOf(process);
    while ((after.descriptors > before.descriptors || after.threads > before.threads) &&
           std::chrono::steady_clock::now() < giveUp) {
        std::this_thread::yield();
        after = figuresOf(process);
    }
    return after;
}

void expectConstant(const ProcessFigures& before, const ProcessFigures& after)
{
    // Fewer are no loss: the libraries give up what they needed for the start.
    EXPECT_LE(after.descriptors, before.descriptors);
    EXPECT_LE(after.threads, before.threads);
    showFigure("resident memory", static_cast<double>(after.residentBytes) / 1e6, "MB");
    const double growth = static_cast<double>(after.residentBytes) - static_cast<double>(before.residentBytes);
    showFigure("growth of resident memory", growth / 1e6, "MB");
    if (!kSanitized) {
        EXPECT_LE(growth, static_cast<double>(kMostGrowth));
    }
}

}  // namespace tests
