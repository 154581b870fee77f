#include <array>

#include "engineering/autotest/KYRAutoTest.h"
#include "engineering/base/Log.h"

#undef KYR_LOG_FUNCTION
#define KYR_LOG_FUNCTION "HandleSourceCommands"

namespace {

// WIRE: the tables are not inverses: sources 6 and 14 report as 18 and 16, which the station cannot request.

/// The platform's source by the station's number, which counts from 1.
constexpr std::array<int, 19> kSourceIds = {1, 0, 0, 3, 0, 0, 16, 9, 10, 25, 30, 0, 7, 0, 0, 0, 0, 0, 44};

/// The station's number by the platform's source, which counts from 1.
constexpr auto kTestIds = [] {
    std::array<unsigned char, 44> ids{};
    constexpr unsigned char kKnown[][2] = {{1, 1},   {3, 4},  {6, 18},  {7, 13},  {9, 8},  {10, 9},
                                           {14, 16}, {16, 7}, {25, 10}, {30, 11}, {44, 19}};
    for (const auto& [source, test] : kKnown)
        ids[source - 1U] = test;
    return ids;
}();

}  // namespace

KYRSource::SourceID KYRAutoTest::ChangeSourceID(unsigned char test_id)
{
    const std::size_t nIndex = test_id - std::size_t{1};  // for 0 beyond the table, too
    return nIndex < kSourceIds.size() ? static_cast<KYRSource::SourceID>(kSourceIds[nIndex]) : KYRSource::SOURCE_NONE;
}

unsigned char KYRAutoTest::ChangeSourcrMgrSourceID(KYRSource::SourceID source_id)
{
    const std::size_t nIndex = static_cast<std::size_t>(source_id) - 1;
    return nIndex < kTestIds.size() ? kTestIds[nIndex] : 0;
}

std::span<const Command> KYRAutoTest::SourceCommands()
{
    static constexpr auto kCommands = std::to_array<Command>({
        // cmd_two, least number of parameters, name, action
        {0x00, 1, "set source",
         [](KYRAutoTest& engine, Params params) {
             // A number without a source requests source 0, which the source manager refuses.
             const KYRSource::SourceID source_id = engine.ChangeSourceID(params[0]);
             KYR_LOG_DEBUG("[HandleSourceCommands], source_id = %d", source_id);
             if (KYRSource::Request(source_id, KYRSource::AUDIO_GAIN_DEFAULT) != 1)
                 KYR_LOG_ERROR("[HandleSourceCommands], KYRSource::Request(%d) failed!", source_id);
         }},
        {0x01, 0, "get source",
         [](KYRAutoTest& engine, Params) {
             engine.m_ucLastSource =
                 engine.ChangeSourcrMgrSourceID(KYRSource::GetCurrentSource(KYRSource::SOURCE_TYPE_MAIN));
             Reply(kSource, 0x01, {engine.m_ucLastSource});
         }},
    });
    static_assert(CodesAscend(kCommands));
    return kCommands;
}

void KYRAutoTest::HandleSourceCommands(unsigned char cmd_two, unsigned char* param, int param_len)
{
    Run(SourceCommands(), cmd_two, param, param_len);
}
