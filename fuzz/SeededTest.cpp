// Runs a fuzz target without libFuzzer: over its corpus, and over mutations that are the same in every run.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "fuzz/Fuzz.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

struct Seed {
    std::string name;
    Bytes bytes;
};

std::vector<Seed> corpus()
{
    std::vector<Seed> seeds;
    for (const char* const folder : {FUZZ_CORPUS}) {
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            std::ifstream file(entry.path(), std::ios::binary);
            seeds.push_back({entry.path().filename(), Bytes(std::istreambuf_iterator<char>(file), {})});
        }
    }
    std::ranges::sort(seeds, {}, &Seed::name);
    return seeds;
}

std::string hexOf(const Bytes& bytes)
{
    std::string text;
    for (const std::uint8_t byte : bytes) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02x ", byte);
        text += digits;
    }
    return text;
}

void run(const Bytes& input, const std::string& origin)
{
    try {
        LLVMFuzzerTestOneInput(input.data(), input.size());
    } catch (const fuzz::Finding& finding) {
        ADD_FAILURE() << finding.what() << "\nfrom " << origin << ": " << hexOf(input);
    }
}

/// Changes, removes or inserts bytes, or inserts a piece of another seed.
Bytes mutated(const std::vector<Seed>& seeds, const Bytes& original, std::mt19937& random)
{
    Bytes bytes = original;
    for (unsigned left = 1 + random() % 4; left > 0; --left) {
        const std::size_t at = bytes.empty() ? 0 : random() % bytes.size();
        const auto place = bytes.begin() + static_cast<std::ptrdiff_t>(at);
        switch (bytes.empty() ? 3 : random() % 5) {
            case 0:
                *place = static_cast<std::uint8_t>(random());
                break;
            case 1:
                *place = static_cast<std::uint8_t>(*place ^ 1U << random() % 8);
                break;
            case 2:
                bytes.erase(place, place + static_cast<std::ptrdiff_t>(
                                               std::min<std::size_t>(1 + random() % 8, bytes.size() - at)));
                break;
            case 3:
                bytes.insert(place, 1 + random() % 8, static_cast<std::uint8_t>(random()));
                break;
            default: {
                const Bytes& other = seeds[random() % seeds.size()].bytes;
                const std::size_t from = random() % (other.size() + 1);
                bytes.insert(place, other.begin() + static_cast<std::ptrdiff_t>(from), other.end());
            }
        }
    }
    if (random() % 4 != 0) {
        fuzz::repairChecksums(bytes);
    }
    return bytes;
}

TEST(FuzzTarget, TakesItsCorpusAndNothingAtAll)
{
    const auto seeds = corpus();
    ASSERT_FALSE(seeds.empty());

    run({}, "nothing");
    for (const Seed& seed : seeds) {
        run(seed.bytes, seed.name);
    }
}

TEST(FuzzTarget, TakesMutationsOfItsCorpus)
{
    const auto seeds = corpus();
    ASSERT_FALSE(seeds.empty());

    std::mt19937 random(20231);
    for (int round = 0; round < 300 && !HasFailure(); ++round) {
        const Seed& seed = seeds[random() % seeds.size()];
        run(mutated(seeds, seed.bytes, random), "round " + std::to_string(round) + " of " + seed.name);
    }
}

}  // namespace
