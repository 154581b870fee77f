#include "web/Events.h"

#include <gmock/gmock.h>

namespace web {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

/// @returns the id of the last event in `text`.
std::string lastId(const std::string& text)
{
    const auto at = text.rfind("id: ") + 4;
    return text.substr(at, text.find('\n', at) - at);
}

std::string withoutIds(std::string text)
{
    for (auto at = text.find("id: "); at != std::string::npos; at = text.find("id: ", at)) {
        text.erase(at, text.find('\n', at) + 1 - at);
    }
    return text;
}

class EventsTest : public testing::Test
{
protected:
    Events events{3, [] { return R"({"slots":2})"; }};
};

TEST_F(EventsTest, NewReaderGetsASnapshotAndThenWhatFollows)
{
    events.publish("step", "1");
    auto place = events.placeAfter("");

    EXPECT_TRUE(events.hasNews(place));
    EXPECT_EQ(withoutIds(events.read(place)), "event: snapshot\ndata: {\"slots\":2}\n\n");
    EXPECT_FALSE(events.hasNews(place));
    EXPECT_THAT(events.read(place), IsEmpty());
    events.publish("step", "2");
    events.publish("verdict", "3");
    EXPECT_EQ(withoutIds(events.read(place)), "event: step\ndata: 2\n\nevent: verdict\ndata: 3\n\n");
}

TEST_F(EventsTest, ReaderThatComesBackGoesOnBehindItsLastEvent)
{
    auto first = events.placeAfter("");
    events.read(first);
    events.publish("step", "1");
    const std::string id = lastId(events.read(first));
    events.publish("step", "2");

    auto again = events.placeAfter(id);

    EXPECT_EQ(withoutIds(events.read(again)), "event: step\ndata: 2\n\n");
}

TEST_F(EventsTest, IdOfASnapshotIsThatOfTheEventBeforeIt)
{
    auto first = events.placeAfter("");
    const std::string id = lastId(events.read(first));
    events.publish("step", "1");

    auto again = events.placeAfter(id);

    EXPECT_EQ(withoutIds(events.read(again)), "event: step\ndata: 1\n\n");
}

TEST_F(EventsTest, ReaderThatIsOvertakenGetsASnapshot)
{
    auto place = events.placeAfter("");
    events.read(place);
    for (const char* data : {"1", "2", "3", "4"}) {
        events.publish("step", data);
    }

    EXPECT_THAT(withoutIds(events.read(place)), StartsWith("event: snapshot\n"));
    EXPECT_THAT(events.read(place), IsEmpty());
}

TEST_F(EventsTest, TheLastEventThatIsKeptIsStillRead)
{
    auto place = events.placeAfter("");
    events.read(place);
    for (const char* data : {"1", "2", "3"}) {
        events.publish("step", data);
    }

    EXPECT_THAT(events.read(place), HasSubstr("data: 1\n"));
}

TEST_F(EventsTest, StrangeIdGetsASnapshot)
{
    events.publish("step", "1");
    auto place = events.placeAfter("");
    const std::string id = lastId(events.read(place));
    const std::string process = id.substr(0, id.find('-') + 1);

    for (const std::string& strange : {std::string("another-1"), process, process + "x", process + "1x", process + "2",
                                       process + "-1", process + "99999999999999999999", std::string("-")}) {
        auto other = events.placeAfter(strange);
        EXPECT_THAT(withoutIds(events.read(other)), StartsWith("event: snapshot\n")) << strange;
    }
}

TEST_F(EventsTest, SlowReaderTakesManyEventsInSeveralParts)
{
    Events many(1000, [] { return "{}"; });
    auto place = many.placeAfter("");
    many.read(place);
    for (int i = 0; i < 1000; ++i) {
        many.publish("step", std::string(200, 'x'));
    }

    std::size_t parts = 0;
    for (std::string text = many.read(place); !text.empty(); text = many.read(place)) {
        EXPECT_LT(text.size(), 65U << 10);
        ++parts;
    }

    EXPECT_EQ(parts, 4U);
}

TEST_F(EventsTest, WakesUponEachEventUntilItIsToldNotTo)
{
    int woken = 0;
    events.onPublished([&] { ++woken; });
    events.publish("step", "1");
    events.publish("step", "2");
    events.onPublished(nullptr);
    events.publish("step", "3");

    EXPECT_EQ(woken, 2);
}

}  // namespace
}  // namespace web
