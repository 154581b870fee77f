#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "station/trace/FanOut.h"
#include "station/trace/TraceRecorder.h"
#include "station/trace/TraceRing.h"

namespace station {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TraceEvent lost(const std::string& text)
{
    return {TraceEvent::Kind::kLost, {}, {}, {}, text};
}

MATCHER_P(Says, text, "")
{
    return arg.text == text;
}

TEST(TraceRecorder, KeepsAllInOrderAndBeginsAnewWhenTaken)
{
    TraceRecorder recorder;
    recorder.on(lost("one"));
    recorder.on(lost("two"));

    EXPECT_THAT(recorder.take(), ElementsAre(Says("one"), Says("two")));
    EXPECT_THAT(recorder.events(), IsEmpty());
}

TEST(TraceRing, KeepsTheNewest)
{
    TraceRing ring(2);
    EXPECT_THAT(ring.newest(), IsEmpty());
    for (const char* text : {"one", "two", "three"}) {
        ring.on(lost(text));
    }

    EXPECT_THAT(ring.newest(), ElementsAre(Says("two"), Says("three")));
}

TEST(FanOut, TellsEverySink)
{
    TraceRecorder one;
    TraceRing two(1);
    FanOut both({&one, &two});

    both.on(lost("it"));

    EXPECT_THAT(one.events(), ElementsAre(Says("it")));
    EXPECT_THAT(two.newest(), ElementsAre(Says("it")));
}

}  // namespace
}  // namespace station
