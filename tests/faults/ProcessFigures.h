#pragma once

#include <sys/types.h>

#include <cstddef>

namespace tests {

/// What a running process takes of the machine.
struct ProcessFigures {
    std::size_t residentBytes = 0;
    std::size_t descriptors = 0;
    std::size_t threads = 0;
};

/// @throws std::filesystem::filesystem_error when there is no such process.
ProcessFigures figuresOf(pid_t process);

/// The same, counted again while there are more descriptors or threads than `before`, for 60 s at most. zlog opens its
/// file for each line, and the last lines may still be on their way. GLib flushes a connection on a pool of threads, of
/// which an unused one ends after 15 s.
ProcessFigures figuresAfter(const ProcessFigures& before, pid_t process);

/// Resident memory may grow by this much in any number of frames.
inline constexpr std::size_t kMostGrowth = 4'000'000;

/// Expects no more descriptors and threads than before, and no more memory than kMostGrowth above that of before
/// (without a sanitizer). Shows the growth.
void expectConstant(const ProcessFigures& before, const ProcessFigures& after);

}  // namespace tests
