// The functions that libFuzzer expects besides the target.

#include <cstdio>

#include "fuzz/Fuzz.h"

/// Discards the traces of the service.
extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    return std::freopen("/dev/null", "w", stdout) == nullptr ? 1 : 0;
}

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

/// Mutates as libFuzzer does; after three of four mutations, frames get valid checksums.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned int seed)
{
    const std::size_t mutated = LLVMFuzzerMutate(data, size, maxSize);
    if (seed % 4 != 0) {
        fuzz::repairChecksums({data, mutated});
    }
    return mutated;
}
