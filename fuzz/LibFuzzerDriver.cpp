// What libFuzzer asks of a target beside the target itself.

#include <cstdio>

#include "fuzz/Fuzz.h"

/// The service's own traces say nothing here.
extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    return std::freopen("/dev/null", "w", stdout) == nullptr ? 1 : 0;
}

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

/// libFuzzer's own mutations; after three of four the frames get sound checksums.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed)
{
    const std::size_t mutated = LLVMFuzzerMutate(data, size, maxSize);
    if (seed % 4 != 0) {
        fuzz::repairChecksums({data, mutated});
    }
    return mutated;
}
