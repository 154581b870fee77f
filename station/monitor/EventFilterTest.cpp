#include "station/monitor/EventFilter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "protocol/catalogue/Catalogue.h"
#include "station/trace/Attribution.h"

namespace station {
namespace {

using protocol::Frame;
using testing::AllOf;
using testing::HasSubstr;
using Kind = TraceEvent::Kind;

TraceEvent event(Kind kind, Frame frame)
{
    return {kind, {}, {}, std::move(frame), {}};
}

const TraceEvent kAskFrequency = event(Kind::kSent, {0x02, 0x01, {}});
const TraceEvent kFrequency = event(Kind::kReceived, {0x82, 0x01, {0x24, 0xFE}});
const TraceEvent kKey = event(Kind::kReceived, {0x86, 0x11, {0x05}});
const TraceEvent kUnknown = event(Kind::kReceived, {0xEE, 0x01, {}});
const TraceEvent kCorrupt = event(Kind::kCorrupt, {0x82, 0x01, {}});
const TraceEvent kLost = event(Kind::kLost, {});

/// @returns which of the six pass, as letters: Ask, Frequency, Key, Unknown, Corrupt, Lost.
std::string passing(const std::string& expression)
{
    const auto groups = protocol::catalogue::groups();
    const EventFilter filter(groups, expression);
    Attribution attribution(groups);
    std::string letters;
    for (const auto& [letter, one] : {std::pair('A', kAskFrequency), std::pair('F', kFrequency), std::pair('K', kKey),
                                      std::pair('U', kUnknown), std::pair('C', kCorrupt), std::pair('L', kLost)}) {
        if (filter.passes(one, attribution.on(one).decoded)) {
            letters += letter;
        }
    }
    return letters;
}

struct Row {
    const char* name;
    const char* expression;
    const char* passing;
};

class FilterRule : public testing::TestWithParam<Row>
{
};

TEST_P(FilterRule, Holds)
{
    EXPECT_EQ(passing(GetParam().expression), GetParam().passing);
}

INSTANTIATE_TEST_SUITE_P(
    EventFilter, FilterRule,
    testing::Values(Row{"SentIsADirection", "sent", "AL"}, Row{"ReceivedIsADirection", "received", "FKUL"},
                    Row{"CorruptIsADirection", "corrupt", "CL"}, Row{"GroupByKey", "tuner", "AFCL"},
                    Row{"CommandAndItsReplyByKey", "tuner.frequency", "AFL"}, Row{"GroupByCode", "02", "AFCL"},
                    Row{"GroupByCodeWithBitSeven", "0x82", "AFCL"}, Row{"CommandByCodes", "06.11", "KL"},
                    Row{"CodeThatTheCatalogueDoesNotKnow", "6E", "UL"}, Row{"CommasAreAlternatives", "sent,06", "AKL"},
                    Row{"BlanksAreBoth", "received tuner", "FL"}, Row{"BlanksAroundCommas", " sent , 06 ", "AKL"},
                    Row{"NotTurnsAWordRound", "received !tuner", "KUL"}),
    [](const auto& row) { return row.param.name; });

TEST(EventFilter, WithoutAnExpressionPassesEverything)
{
    EXPECT_TRUE(EventFilter(protocol::catalogue::groups(), "").passes(kUnknown, {}));
}

// WIRE: the reply to "delete pairings" stands under the tuner's code.
TEST(EventFilter, ReplyUnderAnotherGroupsCodeIsFoundWithItsCommand)
{
    const auto groups = protocol::catalogue::groups();
    Attribution attribution(groups);
    attribution.on(event(Kind::kSent, {0x04, 0x08, {}}));
    const TraceEvent reply = event(Kind::kReceived, {0x82, 0x08, {0x01}});
    const auto decoded = attribution.on(reply).decoded;

    EXPECT_TRUE(EventFilter(groups, "bluetooth").passes(reply, decoded));
    EXPECT_FALSE(EventFilter(groups, "tuner").passes(reply, decoded));
    EXPECT_TRUE(EventFilter(groups, "02").passes(reply, decoded));
}

std::string errorOf(const std::string& expression)
{
    try {
        EventFilter(protocol::catalogue::groups(), expression);
    } catch (const protocol::UserError& error) {
        return error.what();
    }
    return "";
}

TEST(EventFilter, WordThatIsNothingIsNamedWithWhatItMayHaveBeen)
{
    EXPECT_THAT(errorOf("received tunre"), AllOf(HasSubstr("got 'tunre'"), HasSubstr("'tuner'")));
    EXPECT_THAT(errorOf("02.GG"), HasSubstr("got '02.GG'"));
}

TEST(EventFilter, NotWithoutAWordIsRefused)
{
    EXPECT_EQ(errorOf("!"), "--filter: expected a word behind '!', got none");
    EXPECT_EQ(errorOf("received ! tuner"), "--filter: expected a word behind '!', got none");
}

TEST(EventFilter, EmptyAlternativeIsRefused)
{
    EXPECT_THAT(errorOf(" "), HasSubstr("between the commas"));
    EXPECT_THAT(errorOf("tuner,,gps"), HasSubstr("between the commas"));
}

}  // namespace
}  // namespace station
