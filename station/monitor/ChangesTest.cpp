#include "station/monitor/Changes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace station {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

Changes::Time second(double seconds)
{
    return Changes::Time(std::chrono::duration_cast<Changes::Time::duration>(std::chrono::duration<double>(seconds)));
}

TraceEvent received(std::vector<std::uint8_t> params, double at = 0, std::uint8_t cmdTwo = 0x01)
{
    return {TraceEvent::Kind::kReceived, second(at), {}, {0x82, cmdTwo, std::move(params)}, {}};
}

TEST(ChangesTest, FirstFrameIsFreshAndHasNoChangedByte)
{
    Changes changes;

    const auto& row = changes.on(received({0x24, 0xFE}), "tuner.frequency", "meaning");

    EXPECT_TRUE(row.fresh);
    EXPECT_THAT(row.changed, IsEmpty());
    EXPECT_EQ(row.meaning, "meaning");
    EXPECT_EQ(row.rate(second(5)), 0);
}

TEST(ChangesTest, BytesThatDifferStayMarkedUntilTheNextChange)
{
    Changes changes;
    changes.on(received({0x24, 0xFE}, 1), "", "");
    const auto& row = changes.on(received({0x24, 0xFF}, 2), "", "");
    EXPECT_TRUE(row.fresh);
    EXPECT_THAT(row.changed, ElementsAre(1));

    changes.on(received({0x24, 0xFF}, 3), "", "");
    EXPECT_FALSE(row.fresh);
    EXPECT_THAT(row.changed, ElementsAre(1));
    EXPECT_EQ(row.changedAt, second(2));

    changes.on(received({0x25, 0xFF}, 4), "", "");
    EXPECT_THAT(row.changed, ElementsAre(0));
    EXPECT_EQ(row.count, 4U);
}

TEST(ChangesTest, LongerFrameHasNewBytesAndAShorterOneIsFresh)
{
    Changes changes;
    changes.on(received({0x01}), "", "");
    const auto& row = changes.on(received({0x01, 0x02, 0x03}), "", "");
    EXPECT_THAT(row.changed, ElementsAre(1, 2));

    changes.on(received({0x01}), "", "");

    EXPECT_TRUE(row.fresh);
    EXPECT_THAT(row.changed, IsEmpty());
}

TEST(ChangesTest, RateIsThatOfTheLastFramesAndFallsInSilence)
{
    Changes changes;
    const Changes::Row* row = nullptr;
    for (int i = 0; i < 100; ++i) {
        row = &changes.on(received({}, i < 50 ? i : 50 + (i - 50) * 0.1), "", "");
    }

    EXPECT_NEAR(row->rate(second(54.9)), 10, 0.01);
    EXPECT_NEAR(row->rate(second(68.4)), 1, 0.01);
    EXPECT_EQ(row->rate(second(0)), 0) << "a clock that was set back";
}

TEST(ChangesTest, DirectionsCodesAndNamesHaveRowsInTheOrderOfTheCodes)
{
    Changes changes;
    changes.on(received({}, 0, 0x02), "b", "");
    changes.on(received({}, 0, 0x02), "a", "");
    changes.on(received({}, 0, 0x01), "", "");
    changes.on({TraceEvent::Kind::kSent, {}, {}, {0x02, 0x01, {}}, {}}, "", "");

    std::vector<Changes::Key> keys;
    for (const auto& [key, row] : changes.rows()) {
        keys.push_back(key);
    }

    EXPECT_THAT(keys, ElementsAre(Changes::Key{0x02, 0x01, false, ""}, Changes::Key{0x02, 0x01, true, ""},
                                  Changes::Key{0x02, 0x02, true, "a"}, Changes::Key{0x02, 0x02, true, "b"}));
}

TEST(ChangesTest, OfTooManyCommandsTheOneThatIsSilentLongestGoes)
{
    Changes changes;
    for (std::size_t i = 0; i <= 0xFF; ++i) {
        changes.on(received({}, i == 7 ? 0 : 1, static_cast<std::uint8_t>(i)), "", "");
    }
    ASSERT_EQ(changes.rows().size(), Changes::kMostRows);

    changes.on(received({}, 2), "new", "");

    EXPECT_EQ(changes.rows().size(), Changes::kMostRows);
    EXPECT_FALSE(changes.rows().contains({0x02, 0x07, true, ""}));
    EXPECT_TRUE(changes.rows().contains({0x02, 0x01, true, "new"}));
}

}  // namespace
}  // namespace station
