// The cost of the codec. Floor of decoding: copying each chunk and adding its bytes. Floor of encoding: copying the
// parameters and adding them. Floor of growth: a quarter of the stream.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <random>
#include <vector>

#include "benchmarks/FloorReporter.h"
#include "protocol/Frame.h"
#include "protocol/FrameAssembler.h"

namespace {

using Stream = std::vector<std::uint8_t>;

constexpr std::size_t kStreamSize = 1 << 20;
constexpr std::size_t kQuarter = kStreamSize / 4;

/// Frames of `paramCount` random parameters each, `size` bytes of them.
Stream framesOf(std::size_t paramCount, std::size_t size = kStreamSize)
{
    std::mt19937 random(1);
    Stream params(paramCount);
    Stream stream;
    protocol::FrameBuffer frame;
    while (stream.size() < size) {
        for (std::uint8_t& byte : params) {
            byte = static_cast<std::uint8_t>(random());
        }
        const std::size_t length = protocol::encode(frame, 0x02, 0x03, params);
        stream.insert(stream.end(), frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(length));
    }
    return stream;
}

/// Random bytes without a header, so that none of them may be dropped.
Stream garbage(std::size_t size)
{
    std::mt19937 random(2);
    Stream stream(size);
    for (std::uint8_t& byte : stream) {
        do {
            byte = static_cast<std::uint8_t>(random());
        } while (byte == protocol::kHeader2);
    }
    return stream;
}

template <class Take>
void inChunks(const Stream& stream, std::size_t chunk, Take take)
{
    for (std::size_t at = 0; at < stream.size(); at += chunk) {
        take(protocol::Bytes(stream).subspan(at, std::min(chunk, stream.size() - at)));
    }
}

void decodeAll(const Stream& stream, std::size_t chunk)
{
    protocol::FrameAssembler assembler;
    std::uint64_t digest = 0;
    inChunks(stream, chunk, [&](protocol::Bytes bytes) {
        assembler.append(bytes);
        if (!assembler.worthParsing()) {
            return;
        }
        while (const auto frame = assembler.next()) {
            digest = digest * 31 + frame->cmdOne + frame->params().size() + (frame->checksumHolds ? 1 : 0);
        }
    });
    benchmark::DoNotOptimize(digest);
}

void tell(benchmark::State& state, const Stream& stream)
{
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(stream.size()));
}

/// Arguments: bytes in a frame, bytes in a chunk; a mebibyte in each iteration.
void Decode(benchmark::State& state)
{
    const Stream stream = framesOf(static_cast<std::size_t>(state.range(0)) - 8);
    for ([[maybe_unused]] auto round : state) {
        decodeAll(stream, static_cast<std::size_t>(state.range(1)));
    }
    tell(state, stream);
}

void FloorOfDecode(benchmark::State& state)
{
    const Stream stream = framesOf(static_cast<std::size_t>(state.range(0)) - 8);
    std::array<std::uint8_t, 4096> buffer{};
    for ([[maybe_unused]] auto round : state) {
        std::uint32_t sum = 0;
        inChunks(stream, static_cast<std::size_t>(state.range(1)), [&](protocol::Bytes bytes) {
            std::copy(bytes.begin(), bytes.end(), buffer.begin());
            benchmark::DoNotOptimize(buffer.data());
            benchmark::ClobberMemory();
            sum += protocol::sumOf(protocol::Bytes(buffer).first(bytes.size()));
        });
        benchmark::DoNotOptimize(sum);
    }
    tell(state, stream);
}

const std::vector<std::vector<std::int64_t>> kFramesAndChunks = {{10, 16, 248}, {1, 64, 4096}};
BENCHMARK(Decode)->ArgsProduct(kFramesAndChunks);
BENCHMARK(FloorOfDecode)->ArgsProduct(kFramesAndChunks)->Name("Floor/Decode");

/// Argument: number of parameters.
void Encode(benchmark::State& state)
{
    const Stream params(static_cast<std::size_t>(state.range(0)), 0x5A);
    protocol::FrameBuffer frame;
    for ([[maybe_unused]] auto round : state) {
        benchmark::DoNotOptimize(params.data());
        benchmark::DoNotOptimize(protocol::encode(frame, 0x02, 0x03, params));
        benchmark::ClobberMemory();
    }
}

void FloorOfEncode(benchmark::State& state)
{
    const Stream params(static_cast<std::size_t>(state.range(0)), 0x5A);
    protocol::FrameBuffer frame;
    for ([[maybe_unused]] auto round : state) {
        benchmark::DoNotOptimize(params.data());
        std::copy(params.begin(), params.end(), frame.begin());
        benchmark::DoNotOptimize(protocol::sumOf(params));
        benchmark::ClobberMemory();
    }
}

BENCHMARK(Encode)->Arg(0)->Arg(1)->Arg(2)->Arg(8)->Arg(240);
BENCHMARK(FloorOfEncode)->Arg(0)->Arg(1)->Arg(2)->Arg(8)->Arg(240)->Name("Floor/Encode");

// Growth: the ratio is that of a mebibyte to 256 KiB. Linear is 4.

void decodeEach(benchmark::State& state, const Stream& stream, std::size_t chunk)
{
    for ([[maybe_unused]] auto round : state) {
        decodeAll(stream, chunk);
    }
    tell(state, stream);
}

void GrowthOfGarbage(benchmark::State& state, std::size_t size)
{
    decodeEach(state, garbage(size), 64);
}
BENCHMARK_CAPTURE(GrowthOfGarbage, whole, kStreamSize)->Name("GrowthOfGarbage");
BENCHMARK_CAPTURE(GrowthOfGarbage, quarter, kQuarter)->Name("Floor/GrowthOfGarbage");

void GrowthOfBurst(benchmark::State& state, std::size_t size)
{
    const Stream stream = framesOf(2, size);
    decodeEach(state, stream, stream.size());
}
BENCHMARK_CAPTURE(GrowthOfBurst, whole, kStreamSize)->Name("GrowthOfBurst");
BENCHMARK_CAPTURE(GrowthOfBurst, quarter, kQuarter)->Name("Floor/GrowthOfBurst");

/// Header bytes over and over: every one may begin a frame.
void GrowthOfHeaders(benchmark::State& state, std::size_t size)
{
    Stream stream;
    while (stream.size() < size) {
        stream.insert(stream.end(), {0x2A, 0xA2, 0x00, 0xFE});
    }
    decodeEach(state, stream, 64);
}
BENCHMARK_CAPTURE(GrowthOfHeaders, whole, kStreamSize)->Name("GrowthOfHeaders");
BENCHMARK_CAPTURE(GrowthOfHeaders, quarter, kQuarter)->Name("Floor/GrowthOfHeaders");

}  // namespace

int main(int argc, char** argv)
{
    return benchmarks::runBenchmarks(argc, argv);
}
