// Noise on the line, without end: what the receive path keeps of it is bounded, and the next command is answered.

#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <random>

#include "tests/faults/ProcessFigures.h"
#include "tests/faults/Soak.h"
#include "tests/support/EngineTest.h"

namespace tests {
namespace {

using testing::Contains;

/// 24 hours at 460800 bits a second, of which ten make a byte.
constexpr std::size_t kDay = std::size_t{24} * 3600 * 46'080;

constexpr std::size_t kChunk = 4096;

/// Any bytes, each as likely as any other.
class UniformNoise
{
public:
    void fill(std::vector<std::uint8_t>& chunk)
    {
        for (std::size_t i = 0; i + 8 <= chunk.size(); i += 8) {
            const std::uint64_t bytes = random_();
            std::memcpy(chunk.data() + i, &bytes, sizeof bytes);
        }
    }

private:
    std::mt19937_64 random_{20'26};
};

/// Nothing but beginnings of the longest frame.
class NoiseOfHeaders
{
public:
    void fill(std::vector<std::uint8_t>& chunk)
    {
        static constexpr std::array<std::uint8_t, 4> kHead{0x2A, 0xA2, 0x00, 0xFE};
        for (std::uint8_t& byte : chunk) {
            byte = kHead[next_++ % kHead.size()];
        }
    }

private:
    std::size_t next_ = 1;  // not in step with the chunks
};

/// A line that is held low: no byte can begin a frame.
class Silence
{
public:
    void fill(std::vector<std::uint8_t>& chunk) { std::ranges::fill(chunk, std::uint8_t{0}); }
};

class NoiseTest : public EngineTest
{
public:
    /// Delivers `bytes` of what `noise` fills chunks with, then the station's question until it is answered, and
    /// expects that no memory has gone.
    template <class Noise>
    void deliverAndAsk(Noise noise, std::size_t bytes)
    {
        startInTestMode();
        deliver(noise, kWarmUp);
        const ProcessFigures before = figuresOf(getpid());

        const auto start = std::chrono::steady_clock::now();
        deliver(noise, bytes);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;

        expectConstant(before, figuresOf(getpid()));
        showFigure("noise", static_cast<double>(bytes) / 1e6, "MB");
        showFigure("speed", static_cast<double>(bytes) / 1e6 / took.count(), "MB/s");
        showFigure("frames cut out of it", static_cast<double>(frames_), "");
        showFigure("of these with a checksum that holds", static_cast<double>(frames_ - wrong_), "");
        // What the noise has begun takes 260 bytes at most; then it is over.
        for (int i = 0; i < 260 / 8 + 2; ++i) {
            station.deliver({0x2A, 0xA2, 0x00, 0x02, 0x0F, 0xFF, 0xFE, 0xF0});
        }
        EXPECT_THAT(station.replies(), Contains("8F FF [01]"));
    }

private:
    static constexpr std::size_t kWarmUp = std::size_t{4} << 20;

    template <class Noise>
    void deliver(Noise& noise, std::size_t bytes)
    {
        std::vector<std::uint8_t> chunk(kChunk);
        for (std::size_t done = 0; done < bytes; done += kChunk) {
            noise.fill(chunk);
            link().MsgDecode(chunk.data(), static_cast<int>(chunk.size()));
            if (done % (std::size_t{1} << 20) == 0) {
                count();
                forget();  // the recorders keep everything
            }
        }
        count();
        forget();
    }

    void count()
    {
        for (const std::string& line : log.lines()) {
            frames_ += line.starts_with("INFO [rkb] ParseData, checksum_param") ? 1 : 0;
            wrong_ += line == "INFO checksum_param != check_sum" ? 1 : 0;
        }
    }

    std::size_t frames_ = 0;
    std::size_t wrong_ = 0;
};

TEST_F(NoiseTest, OfADayIsPassedOver)
{
    deliverAndAsk(UniformNoise(), lengthOf(8'000'000, kDay));
}

TEST_F(NoiseTest, OfBeginningsOfFramesIsPassedOver)
{
    deliverAndAsk(NoiseOfHeaders(), lengthOf(4'000'000, 1'000'000'000));
}

TEST_F(NoiseTest, OfALineHeldLowIsPassedOver)
{
    deliverAndAsk(Silence(), lengthOf(8'000'000, 4'000'000'000));
}

}  // namespace
}  // namespace tests
