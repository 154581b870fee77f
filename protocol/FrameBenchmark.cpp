// What the codec costs: build/release/bin/protocol_benchmark

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "protocol/Frame.h"
#include "protocol/FrameAssembler.h"

namespace {

using Stream = std::vector<std::uint8_t>;

constexpr std::size_t kStreamSize = 1 << 20;

/// Frames of `paramCount` parameters each, a mebibyte of them.
Stream framesOf(std::size_t paramCount)
{
    std::mt19937 random(1);
    Stream params(paramCount);
    Stream stream;
    protocol::FrameBuffer frame;
    while (stream.size() < kStreamSize) {
        for (std::uint8_t& byte : params)
            byte = static_cast<std::uint8_t>(random());
        const std::size_t length = protocol::encode(frame, 0x02, 0x03, params);
        stream.insert(stream.end(), frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(length));
    }
    return stream;
}

void assemble(benchmark::State& state, const Stream& stream)
{
    const auto chunk = static_cast<std::size_t>(state.range(0));
    for ([[maybe_unused]] auto round : state) {
        protocol::FrameAssembler assembler;
        for (std::size_t at = 0; at < stream.size(); at += chunk) {
            assembler.append(protocol::Bytes(stream).subspan(at, std::min(chunk, stream.size() - at)));
            while (auto frame = assembler.next())
                benchmark::DoNotOptimize(frame->checksumHolds);
        }
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(stream.size()));
}

void Encode(benchmark::State& state)
{
    const Stream params(static_cast<std::size_t>(state.range(0)), 0x5A);
    protocol::FrameBuffer frame;
    for ([[maybe_unused]] auto round : state)
        benchmark::DoNotOptimize(protocol::encode(frame, 0x02, 0x03, params));
}
BENCHMARK(Encode)->Arg(0)->Arg(1)->Arg(246);

void AssembleShortFrames(benchmark::State& state)
{
    assemble(state, framesOf(0));
}
BENCHMARK(AssembleShortFrames)->Arg(1)->Arg(64)->Arg(4096);

void AssembleLongFrames(benchmark::State& state)
{
    assemble(state, framesOf(246));
}
BENCHMARK(AssembleLongFrames)->Arg(1)->Arg(64)->Arg(4096);

/// Noise that never begins a frame stays in the buffer: what it costs must not grow with it.
void AssembleNoise(benchmark::State& state)
{
    assemble(state, Stream(kStreamSize, 0x55));
}
BENCHMARK(AssembleNoise)->Arg(1)->Arg(64)->Arg(4096);

/// Header bytes over and over: every one may begin a frame.
void AssembleHeaders(benchmark::State& state)
{
    Stream stream;
    while (stream.size() < kStreamSize)
        stream.insert(stream.end(), {0x2A, 0xA2, 0x00, 0xFE});
    assemble(state, stream);
}
BENCHMARK(AssembleHeaders)->Arg(1)->Arg(64)->Arg(4096);

}  // namespace

BENCHMARK_MAIN();
