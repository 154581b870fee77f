#pragma once

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

// Counts the heap allocations of a test program. Replaces the global operators, so include it in one source file of a
// program.

namespace {

std::atomic<std::size_t> theAllocations = 0;

}  // namespace

void* operator new(std::size_t size)
{
    ++theAllocations;
    if (void* const memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}
