// Sends bytes from the line, cut into chunks, to the running engine.
// Input: one byte of options, then the stream. Bit 0: auto-test mode is on; bit 1: traces; bit 2: services are missing;
// bit 3: shell commands fail; upper half: how the stream is cut.

#include <algorithm>
#include <array>
#include <random>

#include "fuzz/EngineHarness.h"
#include "fuzz/Fuzz.h"

namespace {

/// Sizes of chunks; 0: random sizes up to 16; 1000: random sizes up to 1000.
constexpr std::array<std::size_t, 16> kCuts = {4096, 1, 2, 3, 4, 5, 7, 8, 9, 10, 16, 64, 255, 256, 0, 1000};

std::size_t chunkSize(std::size_t cut, std::mt19937& random)
{
    switch (cut) {
        case 0:
            return 1 + random() % 16;
        case 1000:
            return 1 + random() % 1000;
        default:
            return cut;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::ByteReader input({data, size});
    const std::uint8_t circumstances = input.byte();

    fuzz::EngineHarness harness;
    if ((circumstances & 2) != 0) {
        harness.set("/config/~1engineering~1open_debug", true);
    }
    if ((circumstances & 4) != 0) {
        for (const char* service : {"/audio", "/tuner", "/system_misc", "/power", "/wifi"}) {
            harness.set(std::string(service) + "/available", false);
        }
    }
    harness.setCommandsSucceed((circumstances & 8) == 0);
    harness.start();
    if ((circumstances & 1) != 0) {
        harness.station.sendCommand(0x0F, 0x00, {0x01});
    }

    std::mt19937 random(static_cast<unsigned>(size));
    while (!input.atEnd()) {
        const auto chunk = input.bytes(chunkSize(kCuts[circumstances >> 4], random));
        harness.station.deliver({chunk.begin(), chunk.end()});
    }

    harness.check();
    return 0;
}
