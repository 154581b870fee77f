#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>

namespace fuzz {

/// What a target throws when the service did something that it must never do; what() says what.
class Finding : public std::logic_error
{
public:
    using std::logic_error::logic_error;
};

/// Throws a Finding unless `holds`.
inline void expect(bool holds, const std::string& what)
{
    if (!holds) {
        throw Finding(what);
    }
}

/// Gives every place of `bytes` that looks like a frame, and has all its bytes, the checksum that it needs: hardly any
/// mutation gets that far by chance.
void repairChecksums(std::span<std::uint8_t> bytes);

}  // namespace fuzz

/// One target: takes any bytes. libFuzzer and the seeded tests (SeededTest.cpp) both call this.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
